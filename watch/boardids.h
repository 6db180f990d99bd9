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
    /// Returns whether the board `id` was lost before. It then counts as being there again.
    bool takeLost(const QString &id, Type type);

    void clear();

private:
    QHash<QString, QString> m_owners; // serial numbers that two boards claim, to the place of the board that keeps it
    QHash<QString, Type> m_lost; // ids of boards that were lost
    QStringList m_lostOrder; // the same ids, oldest first
};

} // namespace JwDevice
