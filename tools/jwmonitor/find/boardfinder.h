#pragma once

#include <common/searchsettings.h>
#include "portentry.h"
#include "portwatcher.h"
#include <jwmonitor/traffic/boardlink.h>

#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QTimer>

#include <optional>

class QSerialPort;

namespace JwDevice {
class Initializer;
struct PortEvent;
} // namespace JwDevice

namespace JwMonitor {

/**
 * Finds the wanted boards, and finds lost boards again, from start() to stop(). A new search for the missing boards
 * starts when a port appears or a board is lost. The finder owns the boards that it finds.
 *
 * Each search uses its own Initializer, and deletes the Initializer at the end to close its ports. A search has a time
 * limit, because a board of another type keeps the Initializer's probe open without end.
 */
class BoardFinder : public QObject
{
    Q_OBJECT

public:
    /// The state of a wanted board.
    struct BoardState
    {
        enum Stage { Missing, Looking, Found, Lost, Back };
        Stage stage = Missing;
        QString port; ///< name of the port where the board is, or was before it was lost; else empty
    };

    explicit BoardFinder(QObject *parent = nullptr);
    ~BoardFinder() override;

    /// Closes all boards, then searches for the types in `settings`. There must be at least one type.
    void start(const JwTools::SearchSettings &settings);
    /// Ends the search and closes all boards.
    void stop();

    bool isStarted() const { return m_isStarted; }
    bool isSearching() const { return m_initializer; }

    /// Returns the ports of the system, the ports that the newest search tried, and the ports of lost boards, sorted by
    /// name.
    QVector<PortEntry> ports() const;
    /// Returns one entry for each wanted type. Empty before start().
    QMap<JwDevice::Type, BoardState> boards() const { return m_boards; }

Q_SIGNALS:
    void searchStarted(qint64 timeUs); ///< `timeUs` is in microseconds since the epoch
    void searchEnded();
    /// Emitted when ports() or boards() may have changed.
    void changed();
    /// Emitted for each event on a port during the running search. Not emitted for ports of boards that earlier
    /// searches found, because these ports are already open. Don't run an event loop in the slot, because the slot runs
    /// in the middle of a function of the Initializer.
    void portEvent(const JwDevice::PortEvent &event);
    /// Emitted every 100 ms while a search runs, and soon after each portEvent(). `reports` has one report for each
    /// port that the search tries. It has no report for the ports of boards that earlier searches found, because these
    /// ports are already open.
    void reported(const QList<JwDevice::PortReport> &reports);
    void boardFound(const JwMonitor::BoardLink &link, qint64 timeUs);
    void boardLost(const QString &port);

private:
    struct Board
    {
        JwDevice::Communicator *communicator; // a QObject child of `port`, so deleted together with it
        QSerialPort *port;
    };

    void search();
    void endSearch();
    void endSearchSoon(); // ends the search from the event loop; safe inside a signal of the Initializer
    void refreshSoon();
    void refresh();
    Board adopt(JwDevice::Communicator *communicator); // takes ownership of the Communicator and its port
    void onBoardFound(JwDevice::Type type, const Board &held);
    void onPortsChanged(const QVector<SystemPort> &ports);
    bool isWorthASearch(const SystemPort &port) const;
    void lose(const QString &portName);
    void letGo(const Board &board);
    QList<JwDevice::Type> missingTypes() const;
    int limit(const QList<JwDevice::Type> &types) const; // longest time of a search for `types`, in ms

    PortWatcher m_watcher;
    QTimer m_deadline;
    QTimer m_refreshTimer;
    QTimer m_againTimer; // starts the next search later, because a slot for a signal of a port must not start it
    QElapsedTimer m_clock;
    JwTools::SearchSettings m_settings;
    bool m_isStarted = false;
    bool m_isDue = false; // whether a new search starts when the running search has ended and its ports are free
    int m_leaving = 0; // number of ended Initializers that are not deleted yet, so they may still keep ports open
    JwDevice::Initializer *m_initializer = nullptr; // the Initializer of the running search; null if no search runs
    std::optional<QVector<SystemPort>> m_systemPorts;
    QMap<QString, PortEntry> m_entries; // key: name of a port that a search has tried
    QHash<QString, Board> m_held; // the boards whose ports are open; key: name of the port
    QMap<JwDevice::Type, BoardState> m_boards;
};

} // namespace JwMonitor
