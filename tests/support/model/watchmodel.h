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
/// signal is allowed at this time, and, when the event loop is idle, whether something that must have happened is
/// missing. Where the doc comments promise no order or no exact time, the model allows each of them.
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
    /// Notes that the watch broke a rule that only the caller sees.
    void broke(const QString &text) { fail(text); }

    // The system. The watch sees the changes when the event loop runs next.
    void plugged(const UsbPort &port, bool canOpen);
    void pulled(const QString &name);
    void changed(const QString &name);
    void setCanOpen(const QString &name, bool canOpen);

    // The lines.
    void asked(const QString &name, JwDevice::Type type); ///< the board got the query for boards of this type
    /// The board sent a whole sentence of a board of this type, or one that can be parsed but is of no type (Unknown).
    void answered(const QString &name, JwDevice::Type type);
    void babbled(const QString &name); ///< the board sent something that can't be parsed
    /// The application handles a payload of the board. Meanwhile its port emits no signal, so the watch may ask the
    /// board sooner.
    void readBegins(const QString &id);
    void readEnds(const QString &id);

    // The application. Call these functions before the function of the watch.
    void start(const WatchSchedule::Settings &settings);
    void stop(int depth);
    void watchDeleted();
    /// Returns the result that lend() and takeBack() must have, or -1 if the doc comments leave it open.
    int lend(const QString &id, JwDevice::BoardWatch::Lending lending, int depth);
    int takeBack(const QString &id);
    void lent(const QString &id, JwDevice::BoardWatch::Lending lending); ///< lend() returned true
    void communicatorDeleted(const QString &id, int depth);
    void lookAgain();
    void checkBoards();

    // The watch.
    void opened(const QString &name);
    void notOpened(const QString &name);
    void found(const JwDevice::Board &board, bool isBack);
    void lost(const JwDevice::Board &board);

    /// Call this function before the event loop runs.
    void loopBegins();
    /// Call this function when the event loop is idle. `depth` is the number of event loops around it.
    void idle(int depth, const QList<JwDevice::Board> &boards, const QList<JwDevice::PortReport> &reports);

private:
    struct SystemPort
    {
        UsbPort usb;
        int plug = 0; // counts the plugs and pulls
        int changes = 0;
        bool canOpen = true;
    };
    enum Phase { Excluded, Sibling, Wanted, Probing, Ready, Rejected, Lent, Released };
    struct Entry
    {
        SystemPort port; // as the watch saw it
        Phase phase = Wanted;
        QString id;
        JwDevice::Board::IdBasis basis = JwDevice::Board::PortName;
        bool isShared = false;
        bool hadBoard = false;
        JwDevice::Type type = JwDevice::Unknown; // of the newest board
        QVector<qint64> attempts; // without a reason from outside between them
        qint64 openFrom = 0; // when Wanted
        qint64 openUntil = 0;
        qint64 openedAt = 0; // when Probing
        QHash<int, QVector<qint64>> asked; // by type: the times of the queries since the port was opened
        bool isSilenced = false; // the board answered something else
        JwDevice::Type answer = JwDevice::Unknown; // a wanted answer that was not reported yet
        qint64 heardAt = 0; // when Ready
        qint64 checkedAt = -1; // when the running check began; -1 if no check runs
        qint64 checkBegan = -1; // when the newest check began
        bool isVague = false; // bytes may have arrived without a signal of the port
        int verdict = JwDevice::PortReport::NotOpened; // -1: the doc comments don't say
    };
    /// A boardLost() that must come.
    struct Owed
    {
        QString id;
        QString name; // of the port, which may stay open until then
        QVector<JwDevice::Board::Loss> losses; // one of these
        int depth; // it must come before the event loop of this level is idle
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
    bool hasBoardBeside(const Entry &entry) const;
    void want(Entry &entry, qint64 from, qint64 until);
    void wantSoon(Entry &entry);
    void forced(Entry &entry);
    qint64 endOfProbe(const Entry &entry) const;
    void endProbe(Entry &entry);
    void advance();
    void freeSiblings(const Entry &entry);
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
    QMap<QString, JwDevice::Type> m_present; // boards that were reported and not lost, by id
    QMap<QString, JwDevice::Type> m_lost; // boards that were lost, by id
    QMap<QString, QString> m_owners; // serial numbers that two boards have, with the place of the board that keeps it
    QMap<QString, JwDevice::BoardWatch::Lending> m_lent; // by id
    QMap<QString, QVector<qint64>> m_reading; // by id: when the application began with each payload that it handles
    QVector<QString> m_plugged; // names of ports that came since the event loop was idle
    QVector<QString> m_changing; // ids of ports that went since the event loop was idle
};
