#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <ctime>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZER_SLOWS_WORK
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZER_SLOWS_WORK
#endif
#endif

#ifdef SANITIZER_SLOWS_WORK
constexpr int slownessOfSanitizer = 10;
#else
constexpr int slownessOfSanitizer = 1;
#endif

/// Measures the longest time between two turns of this thread's event loop: by the clock, and as processor time of this
/// thread. On a busy machine the clock shows more time, because other programs also use the processor.
class StallWatch
{
public:
    /// Processor time of one turn in ms. If a turn takes longer, a user notices that the window freezes.
    static constexpr double freezeMs = 250 * slownessOfSanitizer;

    StallWatch()
    {
        m_tick.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_tick, &QTimer::timeout, &m_tick, [this] { look(); });
        m_tick.start(1);
        restart();
    }

    void restart()
    {
        m_clock.start();
        m_lastWork = workMs();
        m_longestMs = 0;
        m_longestWorkMs = 0;
    }
    double longestMs() const { return m_longestMs; }
    double longestWorkMs() const { return m_longestWorkMs; }

private:
    static double workMs()
    {
        timespec used{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
    }
    void look()
    {
        m_longestMs = std::max(m_longestMs, static_cast<double>(m_clock.nsecsElapsed()) / 1e6);
        m_longestWorkMs = std::max(m_longestWorkMs, workMs() - m_lastWork);
        m_clock.start();
        m_lastWork = workMs();
    }

    QTimer m_tick;
    QElapsedTimer m_clock;
    double m_lastWork = 0;
    double m_longestMs = 0;
    double m_longestWorkMs = 0;
};
