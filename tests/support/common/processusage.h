#pragma once

#include <QString>

/// The resources that this process uses. `objects`, `connections` and `timers` count only QObjects that were made after
/// the first call of watchObjects().
struct ProcessUsage
{
    qint64 heapBytes; ///< bytes that are allocated and not freed
    qint64 residentBytes;
    int descriptors; ///< number of open descriptors of files and ports; sockets are not counted
    qsizetype objects; ///< number of existing QObjects
    int connections; ///< number of connections to the signals of the counted QObjects
    qsizetype timers; ///< number of running timers of the counted QObjects; a running QTimer is one timer

    static void watchObjects();
    static ProcessUsage now();

    static QString tableHead();
    QString tableRow(const QString &title) const;
};
