#pragma once

#include "systemport.h"

#include <QObject>
#include <QThread>

#include <atomic>

namespace JwMonitor {

/// Watches which serial ports the system has. It asks in a thread of its own: with many ports one answer takes longer
/// than a frame.
class PortWatcher : public QObject
{
    Q_OBJECT

public:
    /// Begins at once.
    explicit PortWatcher(QObject *parent = nullptr);
    ~PortWatcher() override;

    /// Tells the next list also when it is the same as the last one.
    void lookAgain() { m_isForced = true; }

Q_SIGNALS:
    /// The first list, which may be empty, and each one that differs from the list before.
    void portsChanged(const QVector<JwMonitor::SystemPort> &ports);

private:
    QThread m_thread;
    std::atomic_bool m_isForced{false};
};

} // namespace JwMonitor
