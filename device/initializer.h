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
 * Finds boards on USB serial ports and hands the application one ready Communicator per wanted type.
 *
 * \code
 * auto *initializer = new JwDevice::Initializer(this);
 * connect(initializer, &JwDevice::Initializer::deviceInitialized, this, &Window::useBoard);
 * connect(initializer, &JwDevice::Initializer::deviceNotFound, this, &Window::reportMissing);
 * initializer->probe({JwDevice::BoardA, JwDevice::BoardC});
 * \endcode
 *
 * A probe opens every candidate port (see isCandidate()), asks each which board it is, and waits replyTime (400 ms) for
 * an answer. While a wanted type is missing, a new round asks the ports again that are not handed over, by default
 * three times. Then deviceNotFound() reports what is missing, and the probe is over. Ports that were not handed over
 * stay open until the Initializer is destroyed.
 *
 * One Initializer serves one probe. When the probe is over, the Initializer no longer listens to its ports, and another
 * probe() would bring no signal. Create a new Initializer for each probe; this is allowed within deviceNotFound().
 * There is one exception: if no port could be opened, probe() may be called again.
 *
 * A board of a type that you did not ask for keeps the probe open: if it answers in time, the probe waits for that port
 * without limit and reports no missing type meanwhile. Limit the probe with a timer of your own that deletes the
 * Initializer.
 *
 * A port that is lost during the probe is closed (see PortErrors). It then times out as a silent port does. If the
 * probe waits for the port without limit, the probe stays open.
 *
 * Everything happens in the thread of the Initializer, from its event loop. Receivers of its signals may do what they
 * like, also run an event loop. But a receiver of deviceInitialized() must not delete the Initializer: call
 * QObject::deleteLater(). A receiver of deviceNotFound() may delete it.
 */
class JWDEVICE_EXPORT Initializer : public QObject
{
    Q_OBJECT

public:
    /// Does nothing before probe(). `parent` owns it as it owns any QObject.
    explicit Initializer(QObject *parent = nullptr);
    /// Closes and deletes the ports that were not handed over.
    ~Initializer() override;

    /**
     * Starts to look for one board of each of `types`. Connect the signals first: if no port can be opened,
     * deviceNotFound() is emitted before this function returns.
     *
     * `delay` in ms postpones the opening of the ports. It applies only if it is positive and BoardC is wanted.
     *
     * `portNames` are system names such as "ttyACM0". If names are given, the probe tries exactly these ports, after
     * those of earlier calls. Without names it tries every candidate: see isCandidate().
     *
     * Returns false and does nothing if `types` is empty.
     */
    bool probe(const QList<JwDevice::Type> &types, int delay = 0, const QList<QString> &portNames = {});

    /// Sets how many rounds ask again while a wanted type is missing; 3 at first. Rounds are counted over the life of
    /// the Initializer. Takes effect at the end of the running round, but not after deviceNotFound(). Returns the
    /// previous value.
    uint setMaxRetries(uint maxRetries);

    /// What became of each candidate port of the newest probe() so far, in the order in which ports are tried; empty
    /// before probe(). Shows why a board was not found. After the end of the probe, and after the hand-over of a port,
    /// the report changes only if a port that is still here is lost.
    QList<JwDevice::PortReport> portReports() const;

    /**
     * Calls `observer` at every event of a port during a probe, at once and in the order in which events happen. For
     * tools that show what a probe does; nothing has to be logged for it. An empty function ends this.
     *
     * `observer` is called from the middle of the Initializer's work: it may record the event and set
     * another observer. It must not throw, run an event loop, or delete the Initializer, a port or a Communicator.
     */
    void setPortObserver(std::function<void(const JwDevice::PortEvent &event)> observer);

    /// Writes the queries for the wanted types to `comm`, which must have a device. A failed write is not noticed here.
    void queryBoardVersion(JwDevice::Communicator *comm);
    /// Builds the sentence for `session` and writes it to `comm`. Returns false, with a line in the log, if the
    /// sentence can't be built.
    bool sendProtocol(JwDevice::Communicator *comm, JwDevice::SessionInit *session);

Q_SIGNALS:
    /**
     * A board of the wanted `type` answered. `comm` and the open QSerialPort behind it (`comm->device()`) now belong to
     * the receiver. `comm` has no parser, and no signal is connected. The port is a WholeLines<QSerialPort>: its
     * bytesAvailable() counts whole lines only, until setWholeLines(false). If more payloads came directly after the
     * board's answer, the first of them is dropped.
     *
     * Delete them with `comm->device()->deleteLater()` and `delete comm`. Never delete the port within this signal or
     * within a signal of the port: Qt would crash. To notice a pulled cable, give the port a PortErrors.
     */
    void deviceInitialized(JwDevice::Type type, JwDevice::Communicator *comm);
    /// No board of the wanted `type` was found: all rounds are over, or no port could be opened. Emitted once for each
    /// entry of the list of wanted types.
    void deviceNotFound(JwDevice::Type type);

public Q_SLOTS: // for the signals of ports and timers, not for applications
    /// The probed Communicator `object` received a payload.
    void boardReadyRead(QObject *object);
    /// The reply timer of the probed Communicator `object` ran out.
    void readTimeout(QObject *object);
    /// Opens the candidate ports and queries them.
    void probeStage2();

private:
    struct Private;

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
    QList<std::shared_ptr<JwDevice::PortReport>> m_reports; // one for each of m_ports
    QHash<JwDevice::Communicator *, std::shared_ptr<JwDevice::PortReport>> m_commReports; // none is null
    bool m_decided; // the outcome of the last decision is being reported or queued: decide nothing now
    std::shared_ptr<Private> m_private; // each of our slots on the stack holds it too
};

} // namespace JwDevice
