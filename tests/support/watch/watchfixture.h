#pragma once

#include "support/common/recordsink.h"

#include <device/communicator.h>
#include <simulator/board.h>
#include <simulator/testbed.h>
#include <watch/boardwatch.h>

#include <QHash>
#include <QPointer>
#include <QSerialPort>
#include <QSet>
#include <QStringList>

#include <functional>

/// Simulated boards, a BoardWatch for them, and a timeline of its signals. At each signal, the fixture checks the
/// promises that BoardWatch makes to every receiver. A broken promise fails the test.
class WatchFixture
{
public:
    using Receiver = std::function<void(const JwDevice::Board &board)>;

    WatchFixture();
    /// Deletes the watch, then the boards.
    ~WatchFixture();
    WatchFixture(const WatchFixture &) = delete;
    WatchFixture &operator=(const WatchFixture &) = delete;

    /// Adds a board on a port that no other test program uses. `board` describes the board, for example
    /// "BoardA,delay=20".
    JwSimulator::Board *attach(const char *board);
    /// Adds a board with this USB serial number. If it is empty, the board has no serial number.
    JwSimulator::Board *attach(const char *board, const QString &serial);

    /// Returns the board that the watch found on the port of `board`. If there is none, the result has an empty id.
    JwDevice::Board found(const JwSimulator::Board *board) const;
    JwDevice::PortReport report(const JwSimulator::Board *board) const;
    /// Returns how often the watch opened the port, or tried to.
    int attempts(const JwSimulator::Board *board) const { return m_attempts.value(board->portName()); }
    /// Returns how many queries the watch wrote to the port.
    int queries(const JwSimulator::Board *board) const { return m_queries.value(board->portName()); }
    /// Stops the watch. After that, the fixture expects boardFound() for each board, also for a board that was lost
    /// before.
    void stop();
    /// Whether no timer runs in this process, except timers that are older than the first fixture.
    bool isAtRest() const;

    QPointer<JwDevice::BoardWatch> watch;
    /// The signals in order, for example "found SIM1:1.0", "lost SIM1:1.0 cablePulled" and "back SIM1:1.0".
    QStringList timeline;
    QList<JwDevice::Board> lost; ///< the boards of all boardLost() so far
    int changes = 0; ///< number of portsChanged() so far
    Receiver onFound; ///< called in boardFound(), after the checks
    Receiver onLost; ///< called in boardLost(), after the checks
    Receiver onBack; ///< called in boardBack(), after the checks
    std::function<void()> onChange; ///< called in portsChanged()
    LogCapture log;
    JwSimulator::Testbed testbed;

private:
    void checkThere(const char *signal, const JwDevice::Board &board);
    void checkLost(const JwDevice::Board &board);
    void promise(bool kept, const char *signal, const JwDevice::Board &board, const char *text);

    QSet<QString> m_there; // ids of the boards that are there, as the signals say
    QHash<QString, JwDevice::Type> m_known; // types of the boards that were found since the watch was started, by id
    QHash<QString, int> m_attempts; // by port name
    QHash<QString, int> m_queries; // by port name
    QStringList m_broken; // promises that the watch broke
};

/// Whether a program can open the port of `board` now.
bool canBeOpened(const JwSimulator::Board *board);
/// Returns all bytes that `board` received.
QByteArray received(const JwSimulator::Board *board);
/// Returns the port that the board's Communicator uses.
QSerialPort *portOf(const JwDevice::Board &board);

extern const QByteArray versionQuery;
extern const QByteArray informationRequest;
