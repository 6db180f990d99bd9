#pragma once

#include <QByteArrayList>
#include <QList>
#include <QString>

namespace JwSimulator {

class Board;
class DeviceTree;

/// A simulated USB hub with boards behind it. plug() plugs in the hub and all boards together. pull()
/// pulls all of them.
class Hub
{
public:
    /// `usbPath` is the place of the hub's USB device, for example "usb1/1-03".
    Hub(DeviceTree &tree, const QString &name, const QByteArray &usbPath);

    const QString &name() const { return m_name; }
    bool isPlugged() const { return !m_devices.isEmpty(); }

    /// Returns the place of the next board's USB device, for example "usb1/1-03/1-03.01".
    QByteArray nextPath() const;
    void add(Board *board) { m_boards.append(board); }
    void removeLast() { m_boards.removeLast(); }

    bool isFirst(const Board *board) const { return board == m_boards.value(0); }

    /// Plugs in the hub with all its boards, so that all boards appear together. On failure, returns false and sets
    /// `error` (may be null) to one line.
    bool plug(QString *error);
    /// Pulls all boards, and then the hub.
    void pull();
    /// Called when a key of the first board, for example pull-after, pulls the hub. Counts the pull in each board, and
    /// calls pull().
    void pullAsConfigured();

private:
    DeviceTree &m_tree;
    const QString m_name;
    const QByteArray m_usbPath;
    int m_usbNumber = 0;
    QByteArrayList m_devices; // paths of the hub's own devices in m_tree; empty while the hub is not plugged in
    QList<Board *> m_boards;
};

} // namespace JwSimulator
