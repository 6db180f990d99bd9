#pragma once

#include <jwmonitor/traffic/boardlink.h>
#include "findsettings.h"
#include "portentry.h"
#include "portwatcher.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QTimer>

#include <optional>

class QSerialPort;

namespace JwDevice {
class Initializer;
}

namespace JwMonitor {

/**
 * Keeps the wanted boards found, from start() to stop(): it searches, and searches again for what is missing as soon as
 * a port comes or a board is lost. It owns the boards that it finds.
 *
 * Each search is one Initializer, which is deleted at the end of the search, so that its ports become free. A board
 * that answers without being wanted would keep the search open without end; so it gets a limit in time.
 */
class BoardFinder : public QObject
{
    Q_OBJECT

public:
    /// Where a wanted board stands.
    struct BoardState
    {
        enum Stage { Missing, Looking, Found, Lost, Back };
        Stage stage = Missing;
        QString port; ///< where it is, or was
    };

    explicit BoardFinder(QObject *parent = nullptr);
    ~BoardFinder() override;

    /// Lets go of all boards and looks for those of `settings`, of which at least one type must be wanted.
    void start(const FindSettings &settings);
    /// Ends the search, and lets go of all boards.
    void stop();

    bool isStarted() const { return m_isStarted; }
    bool isSearching() const { return m_initializer; }

    /// In the order of JwTools::isPortBefore(): the ports of the system, those that the newest search tried, and those
    /// whose board was lost.
    QVector<PortEntry> ports() const;
    /// Of the wanted types, from the first start() on.
    QMap<JwDevice::Type, BoardState> boards() const { return m_boards; }

public Q_SLOTS:
    /// Something happened in the search: look what became of its ports, once the event loop runs.
    void refreshSoon();

Q_SIGNALS:
    void searchStarted(qint64 timeUs); ///< since the epoch
    void searchEnded();
    /// What ports() and boards() tell has changed.
    void changed();
    /// Reports of the running search; not of the boards that earlier searches found.
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
    void endSearchSoon(); // from within signals of the Initializer
    void refresh();
    Board adopt(JwDevice::Communicator *communicator); // and its port
    void takeBoard(JwDevice::Type type, const Board &held);
    void takePorts(const QVector<SystemPort> &ports);
    bool isWorthASearch(const SystemPort &port) const;
    void lose(const QString &portName);
    void letGo(const Board &board);
    QList<JwDevice::Type> missingTypes() const;
    int limit(const QList<JwDevice::Type> &types) const; // ms of a search for `types`

    PortWatcher m_watcher;
    QTimer m_deadline;
    QTimer m_refreshTimer;
    QTimer m_againTimer; // of a search that is due: never within a signal of a port
    QElapsedTimer m_clock;
    FindSettings m_settings;
    bool m_isStarted = false;
    bool m_isDue = false; // a search, once the running one has ended and its ports are free
    int m_leaving = 0; // Initializers that have ended and may still hold ports
    JwDevice::Initializer *m_initializer = nullptr; // of the running search
    std::optional<QVector<SystemPort>> m_systemPorts;
    QMap<QString, PortEntry> m_entries; // what searches know
    QHash<QString, Board> m_held; // by port
    QMap<JwDevice::Type, BoardState> m_boards;
};

} // namespace JwMonitor
