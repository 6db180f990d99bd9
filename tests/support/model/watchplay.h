#pragma once

#include "virtualclock.h"
#include "watchmodel.h"
#include "watchports.h"
#include "watchschedule.h"

#include <device/portevent.h>
#include <watch/boardwatch.h>

#include <QObject>
#include <QSerialPort>
#include <QSocketNotifier>
#include <QStringList>

#include <deque>
#include <memory>
#include <vector>

/// Runs a schedule on the real BoardWatch with real QSerialPorts in virtual time, and tells the model everything that
/// happens. This class also acts as the application and as the boards.
class WatchPlay : public QObject
{
public:
    WatchPlay(const WatchSchedule &schedule, WatchPorts &ports, VirtualClock &clock);
    ~WatchPlay() override;

    /// Runs the schedule. Returns the rule that the watch broke, or an empty text.
    QString run();
    /// Returns everything that happened.
    const QStringList &trace() const { return m_trace; }

private:
    struct Line
    {
        UsbPort usb; // without a name while the board is not plugged in
        bool hasPermission = true;
        bool isNew = false; // plugged in after the event loop ran last
        bool isMuted = false;
        int ignores = 0;
        QByteArray received;
        QString id; // the id that the watch gave the board last
        std::unique_ptr<QSerialPort> otherProgram;
        std::unique_ptr<QSocketNotifier> readable;
    };
    struct Answer
    {
        qint64 due;
        int board;
        QString name;
    };
    using Step = WatchSchedule::Step;

    void note(const QString &text);
    void performSteps(qsizetype most);
    void perform(const Step &step);
    void act(Step::Action action, int board, const QString &id);
    void settle(int milliseconds);
    void makeWatch();
    void configure();
    QString picture() const;
    void onSignal(const char *name, const JwDevice::Board &board);
    void onPayload(const QString &id, const QString &name);
    void react(const WatchSchedule::Reaction &reaction, const QString &id, const QString &name);
    void onEvent(const JwDevice::PortEvent &event);
    void plug(const Step &step);
    void pull(int board);
    void setCanOpen(int board);
    void onReadable(int board);
    void sendAnswer();
    void send(int board, bool isAsked);
    bool isOpenByWatch(const QString &name) const;
    Line &line(int board) { return m_lines[static_cast<size_t>(board)]; }
    JwDevice::Communicator *communicator(const QString &id) const;

    const WatchSchedule &m_schedule;
    WatchPorts &m_ports;
    VirtualClock &m_clock;
    const qint64 m_begin;
    WatchModel m_model;
    QStringList m_trace;
    std::vector<Line> m_lines; // by board
    std::deque<Answer> m_answers; // sorted by time
    WatchSchedule::Settings m_settings;
    QString m_picture; // what picture() returned at the newest portsChanged()
    int m_configurations = 0;
    int m_nextStep = 0;
    int m_signals = 0;
    int m_payloads = 0;
    int m_depth = 0; // number of event loops that run now: 1 in the outermost, 2 in an event loop inside it
    bool m_isCalling = false; // whether a function of the watch or of the system is called, not the event loop
    bool m_cameToRest = true;
    std::unique_ptr<JwDevice::BoardWatch> m_watch;
};
