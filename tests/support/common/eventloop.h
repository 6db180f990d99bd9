#pragma once

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>

#include <functional>

/// Runs the event loop until `done()` returns true. Returns false if that takes more than 30 s.
inline bool runUntil(const std::function<bool()> &done)
{
    QTimer watchdog;
    watchdog.start(1000);
    QElapsedTimer time;
    time.start();
    while (!done()) {
        if (time.hasExpired(30000))
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

/// Runs the event loop until no event is queued and no descriptor is ready, but at most 1000 turns.
inline void settle()
{
    constexpr int mostTurns = 1000;
    int idle = 0;
    for (int turn = 0; turn < mostTurns && idle < 3; ++turn)
        idle = QCoreApplication::eventDispatcher()->processEvents(QEventLoop::AllEvents) ? 0 : idle + 1;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// Runs `work` in a nested event loop, as a modal dialog does.
inline void runNested(const std::function<void()> &work)
{
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [&] {
        work();
        loop.quit();
    });
    loop.exec();
}
