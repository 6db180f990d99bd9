#pragma once

#include <QByteArray>
#include <QMap>
#include <QQueue>
#include <QTimer>

namespace JwSimulator {

/// Sends udev's events to every monitor of a testbed, each monitor in the order of the events.
///
/// A monitor is the object with which a program receives udev's events. umockdev gives each monitor a socket in the
/// testbed's folder. Such a socket holds only about ten events. If the socket is full, umockdev's own sender ends the
/// process, but this class keeps further events until the monitor reads.
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
    quint64 m_number = 0; // number of the last event (SEQNUM)
    QMap<QByteArray, QQueue<QByteArray>> m_waiting; // for each full socket, by path: the messages that wait
    QTimer m_retry;
};

} // namespace JwSimulator
