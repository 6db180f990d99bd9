#pragma once

#include "portsource.h"

#include <watch/board.h>

#include <QHash>
#include <QStringList>

namespace JwDevice {

/// The id of the board on a port.
struct BoardId
{
    QString text;
    Board::IdBasis basis = Board::PortName;
    bool isShared = false; // whether another board has the same serial number
};

/// Gives each port the id of its board, and remembers which boards were there before.
class BoardIds
{
public:
    /// Returns the USB serial number with the interface, for example "SIM7:1.0". Empty without a serial number.
    static QString serialId(const SystemPort &port);
    /// Returns the id of the board on `port`. `others` are the other ports that are there now.
    BoardId idOf(const SystemPort &port, const QVector<SystemPort> &others);

    /// Notes that the board `id` was lost.
    void onLost(const QString &id, Type type);
    /// Returns whether a board with this id and type was lost, and forgets that the board `id` was lost.
    bool takeLost(const QString &id, Type type);

    void clear();

private:
    QHash<QString, QString> m_owners; // for each serial number of two boards: the place of the board that came first
    QHash<QString, Type> m_lost; // types of the lost boards, by id
    QStringList m_lostOrder; // ids of the lost boards; the board that was lost first is first
};

} // namespace JwDevice
