#include "hub.h"

#include <simulator/board.h>
#include <simulator/port.h>
#include <simulator/usbdevice.h>

#include <utility>

namespace JwSimulator {

Hub::Hub(DeviceTree &tree, const QString &name, const QByteArray &usbPath)
    : m_tree(tree)
    , m_name(name)
    , m_usbPath(usbPath)
{
}

QByteArray Hub::nextPath() const
{
    const QByteArray number = QByteArray::number(m_boards.size() + 1).rightJustified(2, '0');
    return m_usbPath + m_usbPath.mid(m_usbPath.lastIndexOf('/')) + '.' + number;
}

bool Hub::plug(QString *error)
{
    QString fault;
    if (isPlugged()) {
        fault = QStringLiteral("it is plugged in already; pull it first");
    } else {
        m_usbNumber = m_tree.takeUsbNumber();
        const UsbIdentity identity{0x1d6b, 0x0002, QStringLiteral("Simulator"), QStringLiteral("Simulated hub"), {}};
        for (const Device &device : {usbDevice(m_usbPath, identity, "09", m_usbNumber, "usb"),
                                     usbInterface(m_usbPath, identity, "09", {"09", "00", "00"}, "hub")}) {
            m_devices.append(device.path);
            m_tree.add(device, fault);
        }
        // All boards are prepared first, so that they appear in the same moment.
        QList<Board *> prepared;
        for (Board *board : std::as_const(m_boards)) {
            if (fault.isEmpty() && board->m_port->prepare(board->nextName(), fault))
                prepared.append(board);
        }
        for (const QByteArray &device : std::as_const(m_devices))
            m_tree.show(device);
        for (Board *board : std::as_const(prepared))
            board->appear();
        if (fault.isEmpty())
            return true;
        pull();
    }
    if (error)
        *error = QStringLiteral("hub %1: %2").arg(m_name, fault);
    return false;
}

void Hub::pull()
{
    for (Board *board : std::as_const(m_boards))
        board->pull();
    if (!isPlugged())
        return;
    while (!m_devices.isEmpty())
        m_tree.remove(m_devices.takeLast());
    m_tree.freeUsbNumber(m_usbNumber);
}

void Hub::pullAsConfigured()
{
    for (Board *board : std::as_const(m_boards))
        ++board->m_configuredPulls;
    pull();
}

} // namespace JwSimulator
