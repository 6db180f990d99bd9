#pragma once

#include "watchports.h"
#include "watchschedule.h"

#include <device/portreport.h>
#include <watch/board.h>
#include <watch/boardwatch.h>

#include <QHash>
#include <QMap>
#include <QString>
#include <QVector>

#include <functional>
#include <map>

/// The rules of BoardWatch, written from its doc comments. The model gets everything that happens: the events of the
/// system, the application's calls, the bytes on the lines, and the signals of the real watch. It says whether each
/// signal is allowed at the time when it comes, and, when the event loop is idle, whether something that must have
/// happened is missing. Where the doc comments promise no order or no exact time, the model allows every order or time.
class WatchModel
{
public:
    struct Surroundings
    {
        std::function<qint64()> now;
        std::function<bool(const QString &name)> isOpen; ///< whether the watch has the port open
    };

    explicit WatchModel(const Surroundings &surroundings)
        : m_around(surroundings)
    {
    }

    /// Returns the first rule that the watch broke. Empty if there is none.
    const QString &fault() const { return m_fault; }
    /// Call this function if the watch broke a rule that the model can't check. `text` says which.
    void broke(const QString &text) { fail(text); }

    // What happens in the system. The watch sees these changes when the event loop runs next.
    void plugged(const UsbPort &port, bool canOpen);
    void pulled(const QString &name);
    void changed(const QString &name);
    void setCanOpen(const QString &name, bool canOpen);
    void freed(const QString &name); ///< another program, or stop() of this watch, closed the port

    // What goes over the serial lines.
    void asked(const QString &name, JwDevice::Type type); ///< the board got the query for boards of this type
    /// The board sent a whole sentence: an answer of a board of this type, or, for Unknown, a sentence of no board
    /// type.
    void answered(const QString &name, JwDevice::Type type);
    void babbled(const QString &name); ///< the board sent something that can't be parsed
    /// The application begins or ends to handle a payload of the board. In between, the board's port emits no signal:
    /// the watch does not see when more bytes arrive, and may check the board although it just sent something.
    void readBegins(const QString &id);
    void readEnds(const QString &id);

    // What the application does. Call each function before the application acts, but lent() after it.
    void start(const WatchSchedule::Settings &settings);
    void stop(int depth);
    void watchDeleted();
    /// lend() and takeBack() return what the watch's function of the same name must return: 1 for true, 0 for false, or
    /// -1 if the doc comments allow both.
    int lend(const QString &id, JwDevice::BoardWatch::Lending lending, int depth);
    int takeBack(const QString &id);
    /// The watch's lend() returned true, for which lend() here returned -1.
    void lent(const QString &id, JwDevice::BoardWatch::Lending lending);
    void communicatorDeleted(const QString &id, int depth);
    void lookAgain();
    void checkBoards();

    // What the watch does.
    void opened(const QString &name);
    void notOpened(const QString &name);
    void found(const JwDevice::Board &board, bool isBack);
    void lost(const JwDevice::Board &board);

    /// Call this function before the event loop runs.
    void loopBegins();
    /// Call this function when the event loop is idle. `depth` is 1 for the outermost event loop, 2 for an event loop
    /// inside it, and so on.
    void idle(int depth, const QList<JwDevice::Board> &boards, const QList<JwDevice::PortReport> &reports);

private:
    struct SystemPort
    {
        UsbPort usb;
        int plug = 0; // number of this plug; tells the port from an earlier port of the same name
        int changes = 0;
        bool canOpen = true;
    };
    enum Phase { Excluded, Sibling, Wanted, Probing, Ready, Rejected, Lent, Released };
    struct Entry
    {
        SystemPort port; // as the watch saw the port last
        Phase phase = Wanted;
        QString id;
        JwDevice::Board::IdBasis basis = JwDevice::Board::PortName;
        bool isShared = false;
        bool hadBoard = false;
        JwDevice::Type type = JwDevice::Unknown; // of the newest board on this port
        int failures = 0; // number of failed attempts to open the port since opened() or hurry()
        qint64 openFrom = 0; // if Wanted: the watch must not open the port before this time
        qint64 openUntil = 0; // if Wanted: the watch must try to open the port at this time at the latest
        qint64 openedAt = 0; // if Probing: when the watch opened the port
        // Key 1: BoardC's query, key 0: the query of the other boards. Value: its times since the port was opened.
        QHash<int, QVector<qint64>> asked;
        bool isSilenced = false; // whether the board's answer was not a wanted one, so the watch must not ask again
        JwDevice::Type answer = JwDevice::Unknown; // type of a wanted board that answered, until it is reported
        qint64 heardAt = 0; // if Ready: when the board sent something last
        qint64 checkedAt = -1; // when the running check began; -1 if no check runs
        qint64 checkBegan = -1; // when the newest check began, whether it still runs or not
        bool isVague = false; // whether bytes may have arrived without a signal of the port, see readBegins()
        /// The PortReport::Verdict that the watch must report. -1 = any, because BoardWatch's doc comments don't say
        /// it. A port that the watch leaves closed is NotOpened.
        int verdict = JwDevice::PortReport::NotOpened;
    };
    /// A boardLost() that must come.
    struct Owed
    {
        QString id;
        UsbPort port; // may stay open until boardLost() comes
        JwDevice::Board::IdBasis basis;
        QVector<JwDevice::Board::Loss> losses; // boardLost() must give one of these reasons
        int depth; // boardLost() must come before idle() is called with this depth or a lower one
    };

    /// A lent board: how long it is lent, and the port that it was on.
    struct Loan
    {
        JwDevice::BoardWatch::Lending lending;
        UsbPort port;
        JwDevice::Board::IdBasis basis;
    };

    void fail(const QString &text);
    Entry *find(const QString &name);
    Entry *findId(const QString &id);
    Owed *findOwed(const QString &id);
    void owe(const Entry &entry, JwDevice::Board::Loss loss, int depth);
    bool isOwed(const QString &name) const;
    QString exclusion(const UsbPort &port) const;
    void remove(const QString &name);
    void add(const SystemPort &port);
    void giveId(Entry &entry);
    bool hasBoardBeside(const Entry &entry);
    void want(Entry &entry, qint64 from, qint64 until);
    void wantSoon(Entry &entry);
    void hurry(Entry &entry, int pause);
    qint64 endOfProbe(const Entry &entry) const;
    void endProbe(Entry &entry);
    void advance();
    void leaveSiblings();
    void freeSiblings();
    bool isWanted(JwDevice::Type type) const { return m_settings.types.contains(type); }
    int delay() const { return isWanted(JwDevice::BoardC) ? m_settings.delay : 0; }
    void checkEntry(const Entry &entry);
    bool isVague(const Entry &entry) const;
    void checkQueries(const Entry &entry);
    void checkReport(const Entry &entry, const JwDevice::PortReport &report);

    const Surroundings m_around;
    QString m_fault;
    std::map<QString, SystemPort> m_system; // by port name
    int m_plugs = 0;
    bool m_isStarted = false;
    WatchSchedule::Settings m_settings;
    std::map<QString, Entry> m_entries; // the ports that the watch knows, by port name
    QVector<Owed> m_owed;
    QMap<QString, JwDevice::Type> m_present; // types of the boards that were reported and are not lost, by id
    QMap<QString, JwDevice::Type> m_lost; // types of the boards that were lost, by id
    // By serial number that two boards have: the place of the board whose id is this serial number.
    QMap<QString, QString> m_owners;
    QMap<QString, Loan> m_lent; // by id
    // By id of the board: for each payload that the application handles just now, the time when it began to do so.
    QMap<QString, QVector<qint64>> m_reading;
    QVector<QString> m_plugged; // names of the ports that were plugged in since the event loop was last idle
    QVector<QString> m_changing; // ids of the ports that went away since the event loop was last idle
};
