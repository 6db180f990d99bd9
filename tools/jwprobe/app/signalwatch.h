#pragma once

#include <QObject>

namespace JwProbe {

/// Turns SIGINT and SIGTERM into the Qt signal received(). If the event loop does not run within a second, the process
/// ends with the same status. A write to a pipe that nobody reads can block the event loop. Create one object only.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatch(QObject *parent = nullptr);
    ~SignalWatch() override;

    /// Sets the exit status for both signals. Before, it is 128 and the signal's number.
    static void setExitStatus(int status);

Q_SIGNALS:
    /// End the program with this status.
    void received(int status);
};

} // namespace JwProbe
