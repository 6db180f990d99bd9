#include "portwatcher.h"

#include <QSerialPortInfo>
#include <QTimer>

#include <memory>
#include <optional>

namespace JwMonitor {

namespace {

constexpr int interval = 500; // ms between two looks at the system's ports; a person does not notice this delay

QVector<SystemPort> systemPorts()
{
    QVector<SystemPort> ports;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    ports.reserve(infos.size());
    for (const QSerialPortInfo &info : infos) {
        QString id;
        if (info.hasVendorIdentifier())
            id = QStringLiteral("%1:%2")
                     .arg(info.vendorIdentifier(), 4, 16, QLatin1Char('0'))
                     .arg(info.productIdentifier(), 4, 16, QLatin1Char('0'));
        ports.append({info.portName(), id, info.manufacturer(), info.description(), info.serialNumber()});
    }
    return ports;
}

} // namespace

PortWatcher::PortWatcher(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<QVector<SystemPort>>();
    auto *timer = new QTimer; // no parent, because Qt moves no child to another thread; deleted when m_thread ends
    timer->setInterval(interval);
    timer->moveToThread(&m_thread);
    const auto known = std::make_shared<std::optional<QVector<SystemPort>>>();
    const auto look = [this, known] {
        const bool isForced = m_isForced.exchange(false);
        const QVector<SystemPort> ports = systemPorts();
        if (!isForced && *known == ports)
            return;
        *known = ports;
        Q_EMIT portsChanged(ports);
    };
    connect(timer, &QTimer::timeout, timer, look);
    connect(&m_thread, &QThread::started, timer, look);
    connect(&m_thread, &QThread::started, timer, QOverload<>::of(&QTimer::start));
    connect(&m_thread, &QThread::finished, timer, &QObject::deleteLater);
}

void PortWatcher::start()
{
    m_thread.start();
}

PortWatcher::~PortWatcher()
{
    m_thread.quit();
    m_thread.wait();
}

} // namespace JwMonitor
