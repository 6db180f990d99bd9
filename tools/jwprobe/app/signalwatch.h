#pragma once

#include <QObject>

namespace JwProbe {

/// Turns SIGINT and SIGTERM into a signal of the event loop. A program that doesn't get to its event loop within a
/// second, as when it writes to a pipe that nobody reads, ends with the same status. Make one at most.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatch(QObject *parent = nullptr);
    ~SignalWatch() override;

    /// The exit status from now on; before that it is 128 and the signal's number.
    static void setExitStatus(int status);

Q_SIGNALS:
    /// The program is to end with this status.
    void received(int status);
};

} // namespace JwProbe
