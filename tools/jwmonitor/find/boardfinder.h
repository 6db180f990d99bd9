#pragma once

#include "portrows.h"
#include <common/searchsettings.h>
#include <jwmonitor/traffic/boardlink.h>

#include <device/portevent.h>
#include <watch/boardwatch.h>

#include <QHash>
#include <QMap>
#include <QStringList>
#include <QTimer>

namespace JwMonitor {

/**
 * Keeps the rows in the table of ports: all serial ports of the system, and the boards that are or were on them. A
 * BoardWatch finds the boards from start() to stop(). Before start() and after stop(), the BoardWatch only lists the
 * ports.
 */
class BoardFinder : public PortRows
{
    Q_OBJECT

public:
    static constexpr int mostLost = 100; ///< largest number of rows of lost boards

    explicit BoardFinder(QObject *parent = nullptr);
    ~BoardFinder() override;

    /// Closes all boards, then finds all boards of the types in `settings`, also boards that are plugged in later.
    /// There must be at least one type.
    void start(const JwTools::SearchSettings &settings);
    /// Closes all boards and ports. Forgets the lost boards. The results on ports without a board stay.
    void stop();

    bool isStarted() const { return m_isStarted; }
    /// Returns whether a port may still answer. The signal changed() reports a change of this too.
    bool isSearching() const { return m_isSearching; }

    /// Returns the rows, sorted by the names of their ports: the ports of the system, the lost boards, and the ports
    /// that the user named but that the system does not have.
    QVector<PortEntry> ports() const override;
    /// Returns the wanted types. Empty before start().
    QList<JwDevice::Type> types() const { return m_settings.types; }

Q_SIGNALS:
    void started(); ///< emitted at each start()
    void stopped(); ///< emitted when start() or stop() ends a running search; ports() has its results
    /// Emitted for each event of a probe. Don't run an event loop in the slot, because the slot runs in the middle of a
    /// function of the Initializer.
    void portEvent(const JwDevice::PortEvent &event);
    /// Emitted when a board is found, and when a lost board is back.
    void boardFound(const JwMonitor::BoardLink &link);
    /// Emitted when a board can't be used any more. Its Communicator still exists. `port` is the name of the port.
    void boardLost(const QString &port);

private:
    void onFound(const JwDevice::Board &board, PortEntry::Stay stay);
    void onLost(const JwDevice::Board &board);
    void closeBoards();
    void startWatch(const QList<JwDevice::Type> &types);
    void refreshSoon();
    void refresh();
    void readResult(PortEntry &entry, const JwDevice::PortReport &report);
    void addMissingPorts(QMap<QString, PortEntry> &entries) const;

    JwTools::SearchSettings m_settings;
    bool m_isStarted = false;
    bool m_isSearching = false;
    QTimer m_refreshTimer;
    QMap<QString, PortEntry> m_entries; // by key
    QStringList m_lost; // keys of the lost boards; the board that was lost first is first
    QHash<QString, double> m_eventTimes; // by port name: time of the newest event, in ms since the start of the probe
    JwDevice::BoardWatch m_watch{this}; // the last member, so that it is destroyed while the others still exist
};

} // namespace JwMonitor
