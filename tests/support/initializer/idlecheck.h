#pragma once

#include "probefixture.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <sys/resource.h>

/// What the process does while nothing should happen: little.
class IdleCheck
{
public:
    enum Measure { NotMeasured, Measured };
    explicit IdleCheck(Measure measure)
        : m_measure(measure)
    {
    }

    /// Runs the event loop until it has nothing to do, and then, where it is measured, for a window.
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
    static constexpr int window = 400; // ms
    static constexpr double mostShare = 0.25; // of one processor; a spin takes all that it gets
    static constexpr int mostTurns = 50; // of the event loop: tells a spin also where the machine has no time for it

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
