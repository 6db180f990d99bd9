#pragma once

#include <QString>

/// The resources that this process uses now. Counts QObjects that were made after the first call of watchObjects().
struct ProcessUsage
{
    qint64 heapBytes; ///< allocated and not freed
    qint64 residentBytes;
    int descriptors; ///< open files and ports
    int objects; ///< existing QObjects
    int connections; ///< to their signals
    int timers; ///< running QTimers and other Qt timers

    static void watchObjects();
    static ProcessUsage now();

    static QString tableHead();
    QString tableRow(const QString &title) const;
};
