#pragma once

#include <QHash>
#include <QString>

namespace JwMonitor {

struct TrafficRecord;

/// Names each board by its port. A board that is back on another port has the name of its newest port.
class BoardNames
{
public:
    /// Reads the port of the record's board. Records must be added in the order of their times. Returns whether a name
    /// may have changed.
    bool add(const TrafficRecord &record);
    /// Forgets the board.
    void remove(const QString &key) { m_ports.remove(key); }
    /// Returns the name of the board with this TrafficRecord::key(). If another board used the same port last, the name
    /// also contains the key.
    QString name(const QString &key) const;

private:
    QHash<QString, QString> m_ports; // the newest port of each board, by key
};

} // namespace JwMonitor
