#pragma once

#include <QString>

/// The resources that this process uses. Only QObjects that were made after the first call of watchObjects() count.
struct ProcessUsage
{
    qint64 heapBytes; ///< bytes that are allocated and not freed
    qint64 residentBytes;
    int descriptors; ///< number of open files and ports
    int objects; ///< number of existing QObjects
    int connections; ///< number of connections to the signals of these QObjects
    int timers; ///< number of running Qt timers, including QTimers

    static void watchObjects();
    static ProcessUsage now();

    static QString tableHead();
    QString tableRow(const QString &title) const;
};
