#pragma once

#include <QObject>

namespace JwProbe {

/// Turns SIGINT and SIGTERM into the Qt signal received(). If the event loop does not react within one second, the
/// process ends with the same status. For example, a write to a pipe that nobody reads can block the loop. Create
/// only one object of this class.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatch(QObject *parent = nullptr);
    ~SignalWatch() override;

    /// Sets the exit status for both signals. Without this call, the status is 128 plus the signal's number.
    static void setExitStatus(int status);

Q_SIGNALS:
    /// Emitted at the first of the signals. The receiver must end the program with `status`.
    void received(int status);
};

} // namespace JwProbe
