#pragma once

#include "processusage.h"

#include <QAbstractEventDispatcher>
#include <QByteArray>
#include <QEventLoop>
#include <QTimer>

#include <sys/resource.h>

/// What the process did and what it gained while nothing should have happened.
struct Rest
{
    static constexpr int window = 400; ///< ms
    static constexpr double mostShare = 0.25; ///< of one processor; a spin takes all that it gets
    static constexpr int mostTurns = 50; ///< of the event loop: tells a spin also where the machine has no time for it

    double share;
    int turns;
    ProcessUsage before;
    ProcessUsage after;

    /// Runs the event loop for the window.
    static Rest take()
    {
        Rest rest = {0, 0, ProcessUsage::now(), {}};
        {
            QEventLoop loop;
            QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &loop,
                             [&rest] { ++rest.turns; });
            const double start = processorSeconds();
            QTimer::singleShot(window, &loop, &QEventLoop::quit);
            loop.exec();
            rest.share = (processorSeconds() - start) * 1000 / window;
        }
        rest.after = ProcessUsage::now();
        return rest;
    }

    bool isQuiet() const { return share < mostShare && turns < mostTurns; }
    bool isWithoutGrowth() const
    {
        constexpr qint64 heapChance = 100000; // bytes
        return after.descriptors == before.descriptors && after.objects == before.objects
            && after.connections == before.connections && after.timers == before.timers
            && after.heapBytes - before.heapBytes < heapChance;
    }
    QByteArray text() const
    {
        return QStringLiteral("%1 of a processor, %2 turns\n%3\n%4\n%5")
            .arg(share)
            .arg(turns)
            .arg(ProcessUsage::tableHead(), before.tableRow(QStringLiteral("before")),
                 after.tableRow(QStringLiteral("after")))
            .toLocal8Bit();
    }

private:
    static double processorSeconds()
    {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        const auto seconds = [](const timeval &time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }
};
