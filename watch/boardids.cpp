#include "boardids.h"

#include <logger/logger.h>

namespace JwDevice {

namespace {

/// Largest number of lost boards that are remembered. There is a limit because a faulty device may have a new serial
/// number each time it is plugged in.
constexpr int mostLost = 10000;

QString placeOf(const SystemPort &port)
{
    return port.place.isEmpty() ? port.info.portName() : port.place;
}

} // namespace

QString BoardIds::serialId(const SystemPort &port)
{
    const QString serial = port.info.serialNumber();
    const QString interface = port.place.section(QLatin1Char(':'), 1);
    return serial.isEmpty() || interface.isEmpty() ? serial : serial + QLatin1Char(':') + interface;
}

BoardId BoardIds::idOf(const SystemPort &port, const QVector<SystemPort> &others)
{
    const QString place = placeOf(port);
    const BoardId byPlace{place, port.place.isEmpty() ? Board::PortName : Board::Place, false};
    const QString serial = serialId(port);
    if (serial.isEmpty())
        return byPlace;
    if (!m_owners.contains(serial)) {
        for (const SystemPort &other : others) {
            if (serialId(other) != serial || placeOf(other) == place)
                continue;
            if (m_owners.size() >= mostLost)
                m_owners.clear();
            m_owners.insert(serial, placeOf(other));
            LOGGER_RECORD(Logger::Warning, nullptr).write()
                << "Two boards have the serial number" << port.info.serialNumber() << "- they are told apart by their"
                << "places:" << placeOf(other) << "and" << place;
        }
    }
    if (!m_owners.contains(serial))
        return {serial, Board::SerialNumber, false};
    if (m_owners.value(serial) == place)
        return {serial, Board::SerialNumber, true};
    return {byPlace.text, byPlace.basis, true};
}

void BoardIds::onLost(const QString &id, Type type)
{
    if (!m_lost.contains(id))
        m_lostOrder.append(id);
    m_lost.insert(id, type);
    if (m_lostOrder.size() > mostLost)
        m_lost.remove(m_lostOrder.takeFirst());
}

bool BoardIds::takeLost(const QString &id, Type type)
{
    const auto lost = m_lost.constFind(id);
    const bool isBack = lost != m_lost.constEnd() && *lost == type;
    m_lost.remove(id);
    m_lostOrder.removeOne(id);
    return isBack;
}

void BoardIds::clear()
{
    m_owners.clear();
    m_lost.clear();
    m_lostOrder.clear();
}

} // namespace JwDevice
