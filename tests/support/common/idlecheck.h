#pragma once

#include "eventloop.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <sys/resource.h>

/// Checks that the process is idle: it uses little processor time, and its event loop makes few turns.
class IdleCheck
{
public:
    enum Measure { NotMeasured, Measured };
    explicit IdleCheck(Measure measure)
        : m_measure(measure)
    {
    }

    /// Runs the event loop until it is idle. If this check is Measured, runs the event loop for another 400 ms and
    /// fails the test if the process is busy in that time.
    void verify() const
    {
        settle();
        if (m_measure == NotMeasured)
            return;
        QEventLoop loop;
        int turns = 0;
        QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &loop,
                         [&turns] { ++turns; });
        const double start = processorSeconds();
        QTimer::singleShot(window, &loop, &QEventLoop::quit);
        loop.exec();
        const double share = (processorSeconds() - start) * 1000 / window;
        QVERIFY2(share < mostShare && turns < mostTurns,
                 qPrintable(QStringLiteral("%1 of a processor, %2 turns").arg(share).arg(turns)));
    }

private:
    static constexpr int window = 400; // how long verify() measures the process, in ms
    static constexpr double mostShare = 0.25; // share of one processor; a loop that spins uses 1.0
    // Turns of the event loop. This limit finds a loop that spins on a busy machine, where its share of the processor
    // is low.
    static constexpr int mostTurns = 50;

    static double processorSeconds()
    {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        const auto seconds = [](const timeval &time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }

    const Measure m_measure;
};
