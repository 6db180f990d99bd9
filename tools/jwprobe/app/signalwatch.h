#pragma once

#include <QObject>

namespace JwProbe {

/// Turns the Unix signals SIGINT and SIGTERM into the Qt signal received(). If this object still exists one second
/// after the Unix signal, the process ends at once, with the exit status that received() would report. For example,
/// this happens if a write to a full pipe blocks the event loop. Create only one object of this class.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatch(QObject *parent = nullptr);
    ~SignalWatch() override;

    /// Sets the exit status for both Unix signals. Without this call, the exit status is 128 plus the signal's number.
    static void setExitStatus(int status);

Q_SIGNALS:
    /// Emitted once, at the first Unix signal. The receiver must end the program with the exit status `status`.
    void received(int status);
};

} // namespace JwProbe
