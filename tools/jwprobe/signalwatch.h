#pragma once

#include <QObject>

namespace JwProbe {

/// Turns SIGINT and SIGTERM into a signal of the event loop. Make one at most, before there is another thread.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatch(QObject *parent = nullptr);
    ~SignalWatch() override;

Q_SIGNALS:
    /// `number` is SIGINT or SIGTERM.
    void received(int number);

private:
    int m_descriptor;
};

} // namespace JwProbe
