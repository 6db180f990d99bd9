#include "watchedport.h"

#include "portguard.h"

#include <device/boardrules.h>
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>
#include <device/wholelines.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QSerialPort>

#include <limits>
#include <utility>

namespace JwDevice {

namespace {

constexpr int removalTime = 500; // ms; when a cable is pulled, the system removes the port within this time

QStringList queriesOf(Type type)
{
    Nmea::ParserInit parser;
    parser.init();
    QStringList sentences;
    const QList<SentenceKey> keys = queriesFor({type});
    for (const SentenceKey key : keys) {
        SessionInit record = queryRecord(key);
        QString sentence;
        parser.build(&record, sentence);
        sentences.append(sentence);
    }
    return sentences;
}

} // namespace

WatchedPort::WatchedPort(const SystemPort &port, const WatchSettings &settings, QObject *parent)
    : QObject(parent)
    , m_system(port)
    , m_settings(settings)
{
    m_report = reportOfClosed(QString());
    m_deadline.setSingleShot(true);
    m_checkTimer.setSingleShot(true);
    m_checkTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        endProbe();
        Q_EMIT probeEnded();
    });
    m_removalTimer.setSingleShot(true);
    connect(&m_checkTimer, &QTimer::timeout, this, &WatchedPort::onCheckTimer);
    connect(&m_removalTimer, &QTimer::timeout, this, [this] {
        const bool isGone = QSerialPortInfo(m_system.info.portName()).isNull();
        lose(isGone ? Board::CablePulled : Board::PortFailed);
    });
}

WatchedPort::~WatchedPort()
{
    close(PortGuard::Now);
}

void WatchedPort::probe()
{
    auto *const initializer = new Initializer(this);
    m_initializer = initializer;
    initializer->setMaxRetries(m_settings.maxRetries);
    initializer->setPortObserver([this](const PortEvent &event) {
        if (event.kind == PortEvent::Asked)
            startDeadline(event.round);
        Q_EMIT reportChanged();
        if (const auto observer = m_settings.observer) // a copy, because the observer may set another observer
            observer(event);
    });
    connect(initializer, &Initializer::deviceInitialized, this, [this](Type, Communicator *communicator) {
        endProbe();
        adopt(communicator);
        // Emits boardAnswered() later, from the event loop. At this moment, the port is emitting readyRead(), and does
        // not emit it again before all receivers return. So a receiver that runs an event loop now would hear nothing
        // from the board. The Communicator is also bound later, because nobody listens to it before boardAnswered().
        QMetaObject::invokeMethod(
            this,
            [this, guard = m_guard] {
                if (!guard || guard != m_guard)
                    return;
                m_isReported = true;
                m_guard->bind(m_communicator);
                Q_EMIT boardAnswered();
            },
            Qt::QueuedConnection);
    });
    // The Initializer emits this signal once for each wanted type. The first signal is enough. endProbe() makes sure
    // that the port is closed soon, so that other programs can use it.
    connect(initializer, &Initializer::deviceNotFound, this, [this, initializer] {
        if (m_initializer != initializer)
            return;
        endProbe();
        Q_EMIT probeEnded();
    });
    initializer->probePort(m_settings.types, m_system.info, m_settings.delay);
}

// If a board of another type answers, the Initializer waits without limit. So the probe has a deadline: the time of the
// round that begins, of the retry rounds after it, and of one more round to be safe. Each round sets the deadline
// again, because a round takes longer while the application blocks the event loop.
void WatchedPort::startDeadline(uint round)
{
    const qint64 rounds = qint64{m_settings.maxRetries} - round + 2;
    // A timer can't run for more than 24 days, so a longer probe has no deadline. It ends after its last round.
    if (const qint64 time = rounds * replyTime; time <= std::numeric_limits<int>::max())
        m_deadline.start(static_cast<int>(time));
}

PortReport WatchedPort::report() const
{
    return m_initializer ? m_initializer->portReports().constFirst() : m_report;
}

PortReport WatchedPort::reportOfClosed(const QString &reason) const
{
    PortReport report;
    report.portName = m_system.info.portName();
    report.location = m_system.info.systemLocation();
    report.manufacturer = m_system.info.manufacturer();
    report.product = m_system.info.description();
    report.serialNumber = m_system.info.serialNumber();
    report.errorText = reason;
    return report;
}

void WatchedPort::endProbe()
{
    m_deadline.stop();
    m_report = m_initializer->portReports().constFirst();
    m_initializer->disconnect(this);
    m_initializer->setPortObserver({});
    m_initializer->setMaxRetries(0); // otherwise it would log a retry round for the types that are not on this port
    // Deleted later, because a slot of a signal of the Initializer may have called this function. The Initializer gets
    // no parent, because a receiver of the next signal may delete this object, and with it its children.
    m_initializer->setParent(nullptr);
    std::exchange(m_initializer, nullptr)->deleteLater();
}

void WatchedPort::adopt(Communicator *communicator)
{
    auto *const port = static_cast<QSerialPort *>(communicator->device());
    m_communicator = communicator;
    // Connected before the Communicator is bound to the port again, so onHeard() is called before the receivers of a
    // payload. Such a receiver may run an event loop for a long time, and the board is not silent in this time.
    connect(port, &QSerialPort::readyRead, this, &WatchedPort::onHeard);
    // While such a receiver runs an event loop, the port emits no readyRead() for new bytes. The Communicator reads
    // these bytes later, and then emits its own readyRead().
    connect(communicator, qOverload<>(&Communicator::readyRead), this, &WatchedPort::onHeard);
    m_guard = new PortGuard(port, communicator);
    // This signal means that the application deleted the Communicator or its port, because close() disconnects the
    // signal before the watch deletes them.
    connect(communicator, &QObject::destroyed, this, [this, communicator] {
        // The Communicator is being deleted already. Without this call, the port would delete it again if a receiver of
        // boardLost() runs an event loop, because that loop may delete the port with its children.
        communicator->setParent(nullptr);
        lose(Board::Released);
    });
    // The application deleted the port, but first gave the Communicator another parent.
    connect(port, &QObject::destroyed, this, [this] {
        m_guard = nullptr; // the port deletes it
        lose(Board::Released);
    });
    connect(new PortErrors(port), &PortErrors::portLost, this, &WatchedPort::onPortLost);
    m_check = Check::Off;
    if (m_settings.checkInterval > 0)
        m_checkTimer.start(m_settings.checkInterval);
}

void WatchedPort::onHeard()
{
    m_check = Check::Off;
    if (m_settings.checkInterval > 0)
        m_checkTimer.start(m_settings.checkInterval);
    else
        m_checkTimer.stop();
}

qint64 WatchedPort::unreadBytes() const
{
    return qobject_cast<WholeLinesBase *>(m_guard->parent())->bytesReceived();
}

void WatchedPort::onPortLost(bool isDeviceGone)
{
    if (isDeviceGone) {
        lose(Board::CablePulled);
        return;
    }
    // If the cable was pulled, errors come first, and the system removes the port a little later. So the loss is
    // reported when the port is removed, or when removalTime is over.
    auto *const port = static_cast<QSerialPort *>(m_guard->parent());
    m_failure = port->error() == QSerialPort::ResourceError ? QSerialPort::UnknownError : port->error();
    m_failureText = port->errorString();
    closeAtOnce(port);
    m_checkTimer.stop();
    m_check = Check::Off;
    m_removalTimer.start(removalTime);
}

void WatchedPort::check()
{
    if (!m_communicator || m_check != Check::Off || m_removalTimer.isActive())
        return;
    m_check = Check::Asked;
    m_unreadBytes = unreadBytes();
    m_checkTimer.start(replyTime);
    const QStringList queries = queriesOf(m_report.type);
    for (const QString &query : queries) {
        if (m_communicator) // null if a receiver of a signal deleted it during the last write
            m_communicator->writePayload(query);
    }
}

void WatchedPort::onCheckTimer()
{
    switch (m_check) {
    case Check::Off:
        check();
        break;
    case Check::Asked:
        m_check = Check::Late;
        m_checkTimer.start(0);
        break;
    case Check::Late:
        // While a receiver of a payload runs an event loop, the port emits no signal for new bytes. But more unread
        // bytes show that the board is not silent.
        if (unreadBytes() != m_unreadBytes)
            onHeard();
        else
            lose(Board::NoAnswer);
        break;
    }
}

void WatchedPort::lose(Board::Loss loss)
{
    m_report.verdict = loss == Board::NoAnswer ? PortReport::TimedOut : PortReport::Lost;
    m_report.type = Unknown;
    if (loss == Board::CablePulled) {
        m_report.error = QSerialPort::ResourceError;
        m_report.errorText = QStringLiteral("No such device");
    } else if (loss == Board::PortFailed) {
        m_report.error = m_failure;
        m_report.errorText = m_failureText;
    }
    const bool isReported = m_isReported;
    close(PortGuard::Later);
    if (isReported)
        Q_EMIT boardLost(loss);
    else
        Q_EMIT probeEnded();
}

void WatchedPort::close()
{
    close(PortGuard::Later);
    m_report = reportOfClosed(QString());
}

void WatchedPort::close(PortGuard::When when)
{
    m_deadline.stop();
    // No signal of the Initializer is being handled: a slot of its signals first calls endProbe(), so there it is null.
    delete std::exchange(m_initializer, nullptr);
    m_checkTimer.stop();
    m_removalTimer.stop();
    m_check = Check::Off;
    m_isReported = false;
    if (m_communicator)
        m_communicator->disconnect(this);
    m_communicator = nullptr;
    if (PortGuard *const guard = std::exchange(m_guard, nullptr)) {
        guard->parent()->disconnect(this);
        guard->dispose(when);
    }
}

} // namespace JwDevice
