#pragma once

#include <QString>

/// What this process holds at one moment. Qt's objects are counted from the first call of watchObjects() on.
struct ProcessUsage
{
    qint64 heapBytes; ///< allocated and not freed
    qint64 residentBytes;
    int descriptors; ///< of files and ports
    int objects; ///< living QObjects
    int connections; ///< of all their signals
    int timers; ///< that run

    static void watchObjects();
    static ProcessUsage now();

    static QString tableHead();
    QString tableRow(const QString &title) const;
};
