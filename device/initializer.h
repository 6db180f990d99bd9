#pragma once

#include <device/communicator.h>
#include <device/jwdevice_export.h>
#include <device/portreport.h>
#include <device/type.h>

#include <QHash>
#include <QList>
#include <QObject>
#include <QSerialPortInfo>
#include <QString>

#include <memory>

class QSerialPort;
class QSignalMapper;
class QTimer;

namespace Nmea {
class ParserInit;
}

namespace JwDevice {

class SessionInit;
template <typename Device>
class WholeLines;

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
 * A probe opens every candidate port, asks each who it is, and waits 400 ms for an answer. While a wanted type is
 * missing, ports that did not prove to be a wanted board are asked again, by default three times. Then deviceNotFound()
 * tells what is missing and the probe is over. Ports that were not handed over stay open until the Initializer is
 * destroyed.
 *
 * One Initializer serves one probe to its end: after that it no longer listens to its ports, and a further probe()
 * would bring neither signal. Take a new one for a new probe, also within deviceNotFound(). (Only where no port could
 * be opened at all, probe() may be called again.)
 *
 * A port that answers within its 400 ms with a sentence of a kind known here, but not as a wanted type, is awaited
 * without limit: until it proves to be a wanted board, a missing type is neither asked for again nor reported. An
 * application that can't wait sets a timer of its own and deletes the Initializer. (The same answer after the 400 ms
 * holds nothing up: the port has timed out, and the next round asks it again.)
 *
 * A port whose device is gone while it is probed (the cable was pulled), or that does nothing but fail, is closed. A
 * single error passes: another program that reads from the same port causes such errors. If a closed port was still
 * awaited it times out as a silent port does; if it was awaited without limit, the probe stays open.
 *
 * Everything happens in the thread that owns the Initializer, driven by its event loop. Receivers of its signals may do
 * as they like, also run an event loop of their own. A receiver of deviceInitialized() must not delete the Initializer:
 * use QObject::deleteLater(). One of deviceNotFound() may.
 */
class JWDEVICE_EXPORT Initializer : public QObject
{
    Q_OBJECT

public:
    /// Does nothing yet: see probe(). `parent` may own it, as any QObject.
    explicit Initializer(QObject *parent = nullptr);
    /// Closes and deletes the ports that were not handed over.
    ~Initializer() override;

    /**
     * Starts to look for one board of each of `types`. Connect the signals first: when no port can be opened,
     * deviceNotFound() is emitted before this returns.
     *
     * `delay` is a wait in ms before the ports are opened; it applies only when it is positive and BoardC is wanted.
     * `portNames` are system names such as "ttyACM0"; when given, exactly these ports are tried (and those of earlier
     * calls), else every port whose USB manufacturer is "STMicroelectronics." or whose vendor id is 0x0483.
     *
     * Returns false, and starts nothing, when `types` is empty.
     */
    bool probe(const QList<JwDevice::Type> &types, int delay = 0, const QList<QString> &portNames = {});

    /// Sets how many times ports are asked again while a wanted type is missing (3 at start); the count runs over the
    /// life of the Initializer. Takes effect at the next decision; once deviceNotFound() came, no further round begins.
    /// Returns the previous value.
    uint setMaxRetries(uint maxRetries);

    /// What became of each candidate port of the newest probe() so far, in the order in which they are tried. Tells why
    /// a board was not found; empty before probe(). What happens after the probe is over or to a port that was handed
    /// over is not in it, but for the loss of a port that is still here.
    QList<JwDevice::PortReport> portReports() const;

    /// Writes the queries for the wanted types to `comm`, which must have a device. A failed write is not seen here.
    void queryBoardVersion(JwDevice::Communicator *comm);
    /// Builds the sentence for `session` and writes it to `comm`. Returns false, with a line in the log, when it can't
    /// be built.
    bool sendProtocol(JwDevice::Communicator *comm, JwDevice::SessionInit *session);

Q_SIGNALS:
    /**
     * A board of the wanted `type` answered, and it is yours: `comm` and the open QSerialPort it is bound to
     * (`comm->device()`) pass to the receiver, without a parser and with no signal connected. The port is a
     * WholeLines<QSerialPort>: its bytesAvailable() counts whole lines only, until setWholeLines(false). Of payloads
     * that came right behind the board's answer, one is dropped.
     *
     * Give them back with `comm->device()->deleteLater()` and `delete comm`. Never delete the port within this signal
     * or within one of its own: Qt does not survive that. When the port reports an error later on, close it: a port
     * whose cable was pulled reports it over and over.
     */
    void deviceInitialized(JwDevice::Type type, JwDevice::Communicator *comm);
    /// No board of the wanted `type` was found: all retries are spent, or no port could be opened. Comes once for each
    /// entry in the list of wanted types.
    void deviceNotFound(JwDevice::Type type);

public Q_SLOTS: // for the signals of ports and timers, not for applications
    /// A probed Communicator, `object`, received a payload.
    void boardReadyRead(QObject *object);
    /// The reply timer of a probed Communicator, `object`, ran out.
    void readTimeout(QObject *object);
    /// Opens the candidate ports and queries them.
    void probeStage2();

private:
    struct Trash;

    JWDEVICE_NO_EXPORT JwDevice::Communicator *createCommunicator(QSerialPort *port);
    JWDEVICE_NO_EXPORT QTimer *createTimeoutTimer(JwDevice::Communicator *comm);
    JWDEVICE_NO_EXPORT JwDevice::Communicator *isCommunicator(QObject *object) const;
    JWDEVICE_NO_EXPORT void closeWhenLost(JwDevice::WholeLines<QSerialPort> *port,
                                          const std::shared_ptr<JwDevice::PortReport> &report);
    JWDEVICE_NO_EXPORT std::shared_ptr<JwDevice::PortReport> reportOnHeld(const QString &portName) const;
    JWDEVICE_NO_EXPORT int writeQueries(JwDevice::Communicator *comm);
    JWDEVICE_NO_EXPORT void setCommStatus(JwDevice::Communicator *comm, JwDevice::Type type);
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
    bool m_decided; // the outcome of the last decision is under way; no status opens the question again
    std::shared_ptr<Trash> m_trash; // also held by each of our slots that is on the stack
};

} // namespace JwDevice
