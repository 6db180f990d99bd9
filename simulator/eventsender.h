#pragma once

#include <QByteArray>
#include <QMap>
#include <QQueue>
#include <QTimer>

namespace JwSimulator {

/// Sends udev's events to every monitor of a testbed, each monitor in the order of the events.
///
/// umockdev gives each monitor a socket in the testbed's folder. Such a socket holds only about ten events, and
/// umockdev's own sender ends the process when it is full. This class keeps the rest until the monitor reads.
class EventSender
{
public:
    /// `folder` is the testbed's folder.
    explicit EventSender(const QByteArray &folder);
    EventSender(const EventSender &) = delete;
    EventSender &operator=(const EventSender &) = delete;

    /// Sends one event. `properties` has a NUL after each "NAME=value".
    void send(const QByteArray &action, const QByteArray &path, const QByteArray &subsystem, const QByteArray &type,
              const QByteArray &properties);

private:
    void flush();

    const QByteArray m_folder;
    quint64 m_number = 0; // of the last event
    QMap<QByteArray, QQueue<QByteArray>> m_waiting; // messages that a monitor's socket did not take yet
    QTimer m_retry;
};

} // namespace JwSimulator
