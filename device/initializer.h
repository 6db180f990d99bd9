#pragma once

#include <device/communicator.h>
#include <device/jwdevice_export.h>
#include <device/portevent.h>
#include <device/portreport.h>
#include <device/type.h>

#include <QHash>
#include <QList>
#include <QObject>
#include <QSerialPortInfo>
#include <QString>

#include <functional>
#include <memory>

class QSerialPort;
class QSignalMapper;
class QTimer;

namespace Nmea {
class ParserInit;
}

namespace JwDevice {

class SessionInit;

/**
 * Finds boards on USB serial ports. Hands the application one Communicator with an open port for each wanted type.
 *
 * \code
 * auto *initializer = new JwDevice::Initializer(this);
 * connect(initializer, &JwDevice::Initializer::deviceInitialized, this, &Window::useBoard);
 * connect(initializer, &JwDevice::Initializer::deviceNotFound, this, &Window::reportMissing);
 * initializer->probe({JwDevice::BoardA, JwDevice::BoardC});
 * \endcode
 *
 * A probe opens every candidate port (see isCandidate()), asks which board is there, and waits replyTime (400 ms) for
 * an answer. deviceInitialized() hands over the port of each wanted board. While a wanted type is missing, a new round
 * asks all ports again that were not handed over. By default, there are up to three such rounds. Then deviceNotFound()
 * reports the missing types, and the probe is over. Ports that were not handed over stay open until the Initializer is
 * destroyed.
 *
 * Use each Initializer for one probe only. When the probe is over, the Initializer no longer listens to its ports, so
 * after another probe() it would emit no signal. Create a new Initializer for each probe; a receiver of
 * deviceNotFound() may already do so. There is one exception: if no port could be opened, you may call probe() again.
 *
 * A board of another type keeps the probe open, because it may answer as a wanted type later, for example after its
 * boot loader ends. If such a board answers within replyTime, the probe waits for its port without limit, and does not
 * emit deviceNotFound() while it waits. So limit the probe with your own timer that deletes the Initializer.
 *
 * If a port is lost during the probe, the Initializer closes the port (see PortErrors). Normally, the lost port times
 * out like a silent port. But if a board of another type had already answered on this port in time, the probe waits for
 * the lost port without limit.
 *
 * The Initializer works in the event loop of its thread. Receivers of its signals may do anything, for example run an
 * event loop. But a receiver of deviceInitialized() must not delete the Initializer; call QObject::deleteLater()
 * instead. A receiver of deviceNotFound() may delete it.
 */
class JWDEVICE_EXPORT Initializer : public QObject
{
    Q_OBJECT

public:
    /// Creates an Initializer that opens no port before probe(). `parent` owns the Initializer, as every QObject owns
    /// its children.
    explicit Initializer(QObject *parent = nullptr);
    /// Closes and deletes the ports that were not handed over.
    ~Initializer() override;

    /**
     * Starts to look for one board of each of `types`. Connect the signals first, because if no port can be opened,
     * deviceNotFound() is emitted before this function returns.
     *
     * `delay` is the time in ms after which the ports are opened. It is for BoardC, because that board starts slowly.
     * So the delay is used only if it is positive and `types` contains BoardC.
     *
     * `portNames` are system names, for example "ttyACM0". Without names, the probe tries every candidate (see
     * isCandidate()). With names, the probe tries only the named ports. But if you call probe() again with names, it
     * first tries the ports of the earlier calls again.
     *
     * Returns false and does nothing if `types` is empty.
     */
    bool probe(const QList<JwDevice::Type> &types, int delay = 0, const QList<QString> &portNames = {});

    /// Probes one port that the caller has listed already, in addition to the ports of earlier calls. Does the same as
    /// probe() with the name of `port`, but does not list the system's ports again, which takes milliseconds.
    bool probePort(const QList<JwDevice::Type> &types, const QSerialPortInfo &port, int delay = 0);

    /// Sets the largest number of retry rounds. A retry round asks all ports again that were not handed over, because a
    /// wanted type is missing. The default is 3. The rounds of all probes of this Initializer are counted together. If
    /// you call this function during a probe, the new value is used when the running round ends. After
    /// deviceNotFound(), the new value has no effect. Returns the previous value.
    uint setMaxRetries(uint maxRetries);

    /// Returns a report for each port of the newest probe(), in the order in which probe() tries the ports. Empty
    /// before the first probe(). The reports show why a board was not found. After the end of the probe, the reports
    /// change only if a port that was not handed over is lost. The report of a port that was handed over does not
    /// change any more.
    QList<JwDevice::PortReport> portReports() const;

    /**
     * Sets a function that the Initializer calls directly at every event of a port during a probe, and after the probe
     * if a port that was not handed over is lost. With `observer`, a tool can show what a probe does without reading
     * the log. An empty function ends the calls.
     *
     * The Initializer calls `observer` in the middle of its own functions. So `observer` may only record the event and
     * set another observer. It must not throw, run an event loop, or delete the Initializer, a port or a Communicator.
     */
    void setPortObserver(std::function<void(const JwDevice::PortEvent &event)> observer);

    /// Writes the queries for the wanted types to `comm`, which must have a device. Does not check whether a write
    /// fails.
    void queryBoardVersion(JwDevice::Communicator *comm);
    /// Builds the sentence for `session` and writes it to `comm`. If the sentence can't be built, returns false and
    /// writes a line to the log.
    bool sendProtocol(JwDevice::Communicator *comm, JwDevice::SessionInit *session);

Q_SIGNALS:
    /**
     * Emitted when a board of the wanted `type` answered. `comm` and its open QSerialPort, `comm->device()`, now belong
     * to the receiver. `comm` has no parser, and none of its signals is connected. The port is a
     * WholeLines<QSerialPort>, so its bytesAvailable() counts whole lines only, until you call setWholeLines(false). If
     * `comm` has already received more payloads after the board's answer, the first of these payloads is dropped.
     *
     * Delete the port with `comm->device()->deleteLater()` and the Communicator with `delete comm`. Never use `delete`
     * for the port in a slot of this signal or of a signal of the port: the port is still emitting a signal, so Qt
     * would crash. To notice a pulled cable, create a PortErrors for the port.
     */
    void deviceInitialized(JwDevice::Type type, JwDevice::Communicator *comm);
    /// Emitted when no board of the wanted `type` was found, because all rounds are over or no port could be opened.
    /// Emitted once for each missing entry in the list of wanted types.
    void deviceNotFound(JwDevice::Type type);

public Q_SLOTS: // called by signals of ports and timers; applications don't call these
    /// Handles the payloads that the probed Communicator `object` received.
    void boardReadyRead(QObject *object);
    /// Handles the end of the reply time of the probed Communicator `object`.
    void readTimeout(QObject *object);
    /// Opens the ports of the probe, and writes the queries to them.
    void probeStage2();

private:
    struct Private;

    JWDEVICE_NO_EXPORT void start(int delay);
    JWDEVICE_NO_EXPORT JwDevice::Communicator *createCommunicator(QSerialPort *port);
    JWDEVICE_NO_EXPORT QTimer *createTimeoutTimer(JwDevice::Communicator *comm);
    JWDEVICE_NO_EXPORT JwDevice::Communicator *isCommunicator(QObject *object) const;
    JWDEVICE_NO_EXPORT void closeWhenLost(QSerialPort *port, const std::shared_ptr<JwDevice::PortReport> &report);
    JWDEVICE_NO_EXPORT std::shared_ptr<JwDevice::PortReport> reportOnHeld(const QString &portName) const;
    JWDEVICE_NO_EXPORT int writeQueries(JwDevice::Communicator *comm);
    JWDEVICE_NO_EXPORT void setCommStatus(JwDevice::Communicator *comm, JwDevice::Type type);
    JWDEVICE_NO_EXPORT void tell(JwDevice::PortEvent::Kind kind, const JwDevice::PortReport &report,
                                 const QString &text = QString(), const QString &reason = QString(),
                                 JwDevice::Type type = Unknown) const;
    JWDEVICE_NO_EXPORT void decide();
    JWDEVICE_NO_EXPORT void retryProbe();

    QList<JwDevice::Type> m_types;
    QList<QSerialPortInfo> m_ports;
    QHash<JwDevice::Communicator *, QTimer *> m_commTimers;
    QHash<JwDevice::Communicator *, JwDevice::Type> m_commTypes;
    QHash<JwDevice::Communicator *, uint> m_commIds;
    QSignalMapper *m_readMapper;
    QSignalMapper *m_timeoutMapper;
    Nmea::ParserInit *m_parser;
    QTimer *m_probeTimer;
    uint m_retries;
    uint m_maxRetries;
    QList<std::shared_ptr<JwDevice::PortReport>> m_reports; // one report for each of m_ports
    QHash<JwDevice::Communicator *, std::shared_ptr<JwDevice::PortReport>> m_commReports; // no value is null
    bool m_decided; // true when the probe is over, or when decide() is already queued; decide() then does nothing
    std::shared_ptr<Private> m_private; // shared with each running slot, so it exists until the slot returns
};

} // namespace JwDevice
