#pragma once

#include "portguard.h"
#include "portsource.h"

#include <device/communicator.h>
#include <device/portevent.h>
#include <device/portreport.h>
#include <watch/board.h>

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

class QSerialPort;

namespace JwDevice {

class Initializer;

/// Settings that all ports of a BoardWatch share.
struct WatchSettings
{
    QList<Type> types;
    uint maxRetries = 3;
    int delay = 0; // ms
    int checkInterval = 0; // ms; 0: no check
    std::function<void(const PortEvent &event)> observer;
};

/**
 * One port: its probe, and the connection with the board that answered. The port is closed while there is neither a
 * probe nor a connection. A receiver of any signal of this object may delete this object.
 */
class WatchedPort : public QObject
{
    Q_OBJECT

public:
    WatchedPort(const SystemPort &port, const WatchSettings &settings, QObject *parent);
    ~WatchedPort() override;

    const SystemPort &system() const { return m_system; }
    void setSystem(const SystemPort &port) { m_system = port; }

    /// Starts a probe of a closed port. Then emits boardAnswered() or probeEnded(), perhaps before this function
    /// returns.
    void probe();
    bool isProbing() const { return m_initializer; }
    bool hasBoard() const { return m_guard; }

    PortReport report() const;
    /// Returns a report that says that the port is closed because of `reason`, and not probed.
    PortReport reportOfClosed(const QString &reason) const;
    Communicator *communicator() const { return m_communicator; }

    /// Closes the port without a signal. Forgets the result of the newest probe.
    void close();
    /// Writes the board's query. If no bytes arrive within replyTime, emits boardLost().
    void check();

Q_SIGNALS:
    /// Emitted during a probe when report() changes.
    void reportChanged();
    /// Emitted when a wanted board answered. report() contains the board's type and answer.
    void boardAnswered();
    /// Emitted when no wanted board answered; report() says why. The port is closed, at the latest in the next
    /// turn of the event loop.
    void probeEnded();
    /// Emitted when the board can't be used any more. The port is closed.
    void boardLost(JwDevice::Board::Loss loss);

private:
    void close(PortGuard::When when);
    void startDeadline(uint round);
    void endProbe();
    void adopt(Communicator *communicator);
    void onPortLost(bool isDeviceGone);
    void onHeard();
    qint64 unreadBytes() const;
    void onCheckTimer();
    void lose(Board::Loss loss);

    /// The stages of a check, which finds out whether the board still answers.
    enum class Check {
        Off, // no check runs; m_checkTimer, if it runs, starts the next check
        Asked, // the query was written; m_checkTimer waits for replyTime
        Late, // replyTime is over; one more turn of the event loop reads bytes that have already arrived
    };

    SystemPort m_system;
    const WatchSettings &m_settings;
    PortReport m_report; // of the newest probe that is over
    Initializer *m_initializer = nullptr; // null if no probe runs
    QPointer<PortGuard> m_guard; // null if there is no board
    QPointer<Communicator> m_communicator; // null if there is no board, or if the application deleted it
    bool m_isReported = false; // whether boardAnswered() was emitted for the board
    QTimer m_deadline;
    QTimer m_checkTimer;
    QTimer m_removalTimer; // runs after the port failed, until it is known whether the cable was pulled
    QSerialPort::SerialPortError m_failure = QSerialPort::NoError; // why the port failed
    QString m_failureText;
    Check m_check = Check::Off;
    qint64 m_unreadBytes = 0; // number of unread bytes when the check wrote the query
};

} // namespace JwDevice
