#pragma once

#include "systemport.h"

#include <QObject>
#include <QThread>

#include <atomic>

namespace JwMonitor {

/// Watches which serial ports the system lists. The watcher uses its own thread, because with many ports one look takes
/// so long that the window would stop visibly.
class PortWatcher : public QObject
{
    Q_OBJECT

public:
    explicit PortWatcher(QObject *parent = nullptr);
    ~PortWatcher() override;

    /// Starts the thread that watches the ports. Connect portsChanged() first, because the first look may be over before
    /// this function returns.
    void start();

    /// Makes the next look emit portsChanged() even if the list of ports has not changed.
    void lookAgain() { m_isForced = true; }

Q_SIGNALS:
    /// Emitted after the first look, even if no port is there, and after each change.
    void portsChanged(const QVector<JwMonitor::SystemPort> &ports);

private:
    QThread m_thread;
    std::atomic_bool m_isForced{false};
};

} // namespace JwMonitor
