#pragma once

#include "systemport.h"

#include <QObject>
#include <QThread>

#include <atomic>

namespace JwMonitor {

/// Watches which serial ports the system has. It asks in its own thread: with many ports, one list takes so long that
/// the window would stop visibly.
class PortWatcher : public QObject
{
    Q_OBJECT

public:
    /// Starts to watch.
    explicit PortWatcher(QObject *parent = nullptr);
    ~PortWatcher() override;

    /// Emits the next list even if it has not changed.
    void lookAgain() { m_isForced = true; }

Q_SIGNALS:
    /// Emitted for the first list, even an empty one, and after each change.
    void portsChanged(const QVector<JwMonitor::SystemPort> &ports);

private:
    QThread m_thread;
    std::atomic_bool m_isForced{false};
};

} // namespace JwMonitor
