#pragma once

#include "findsettings.h"
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
 * Finds the wanted boards and keeps them found, from start() to stop(). A new search for the missing boards starts when
 * a port appears or a board is lost. The finder owns the boards that it finds.
 *
 * Each search is one Initializer. The Initializer is deleted at the end of the search, to free its ports. A search has
 * a time limit, because a board of another type would keep it open without end.
 */
class BoardFinder : public QObject
{
    Q_OBJECT

public:
    /// What is known of a wanted board.
    struct BoardState
    {
        enum Stage { Missing, Looking, Found, Lost, Back };
        Stage stage = Missing;
        QString port; ///< where the board is or was
    };

    explicit BoardFinder(QObject *parent = nullptr);
    ~BoardFinder() override;

    /// Closes all boards and searches for those of `settings`, which must want at least one type.
    void start(const FindSettings &settings);
    /// Ends the search and closes all boards.
    void stop();

    bool isStarted() const { return m_isStarted; }
    bool isSearching() const { return m_initializer; }

    /// The ports of the system, the ports that the newest search tried, and the ports of lost boards; sorted by name.
    QVector<PortEntry> ports() const;
    /// One entry for each wanted type; empty before start().
    QMap<JwDevice::Type, BoardState> boards() const { return m_boards; }

Q_SIGNALS:
    void searchStarted(qint64 timeUs); ///< since the epoch
    void searchEnded();
    /// ports() or boards() may have changed.
    void changed();
    /// An event of the running search; not of boards that earlier searches found. Don't run an event loop in the slot.
    void portEvent(const JwDevice::PortEvent &event);
    /// The reports of the running search; not of boards that earlier searches found.
    void reported(const QList<JwDevice::PortReport> &reports);
    void boardFound(const JwMonitor::BoardLink &link, qint64 timeUs);
    void boardLost(const QString &port);

private:
    struct Board
    {
        JwDevice::Communicator *communicator; // a child of the port
        QSerialPort *port;
    };

    void search();
    void endSearch();
    void endSearchSoon(); // for use within a signal of the Initializer
    void refreshSoon();
    void refresh();
    Board adopt(JwDevice::Communicator *communicator); // with its port
    void onBoardFound(JwDevice::Type type, const Board &held);
    void onPortsChanged(const QVector<SystemPort> &ports);
    bool isWorthASearch(const SystemPort &port) const;
    void lose(const QString &portName);
    void letGo(const Board &board);
    QList<JwDevice::Type> missingTypes() const;
    int limit(const QList<JwDevice::Type> &types) const; // ms of a search for `types`

    PortWatcher m_watcher;
    QTimer m_deadline;
    QTimer m_refreshTimer;
    QTimer m_againTimer; // starts the next search, never within a signal of a port
    QElapsedTimer m_clock;
    FindSettings m_settings;
    bool m_isStarted = false;
    bool m_isDue = false; // a new search, when the running one has ended and its ports are free
    int m_leaving = 0; // ended Initializers that may still hold ports
    JwDevice::Initializer *m_initializer = nullptr; // of the running search
    std::optional<QVector<SystemPort>> m_systemPorts;
    QMap<QString, PortEntry> m_entries; // results of searches, by port name
    QHash<QString, Board> m_held; // by port name
    QMap<JwDevice::Type, BoardState> m_boards;
};

} // namespace JwMonitor
