#pragma once

#include <simulator/board.h>
#include <simulator/boardconfig.h>

#include <QList>
#include <QString>

#include <memory>

namespace JwSimulator {

/**
 * Simulated USB serial ports, each with a board. This process and the programs that it starts can use the ports.
 *
 * While a Testbed exists, udev, /sys and listings of /dev show only the simulated devices. This holds for
 * QSerialPortInfo, QSerialPort, and every program that this process starts in this time. A real device can still be
 * opened by its path, for example /dev/ttyS0.
 *
 * Call ensurePreloaded() at the start of main(). Only one Testbed may exist at a time. The Testbed and its boards
 * belong to one thread and use the event loop of that thread.
 *
 * If several programs with a Testbed run at the same time, each Testbed chooses different port names. If you choose the
 * names, use different names in each program, because all programs share QSerialPort's lock files.
 */
class Testbed
{
public:
    /// Largest number of boards. umockdev, the library behind the simulated ports, can't keep more devices open in a
    /// process.
    static constexpr int maxBoards = 48;

    Testbed();
    /// Pulls all cables and deletes all boards. Removes all files of the simulation, and the lock file of
    /// each port if the program that made it has ended.
    ~Testbed();
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    /// Adds one port with its board. Programs can use the port when this function returns, except with
    /// BoardConfig::plugAfter and behind a hub that is not plugged in: such a board is not plugged in yet. The Testbed
    /// owns the board. If the port name is taken, there are maxBoards boards, or the system refuses, returns null and
    /// sets `error` (may be null) to one line.
    Board *add(const BoardConfig &config, QString *error = nullptr);
    /// Adds one board for each of `configs`. A board without a port name gets a name that no other board has. If a
    /// board can't be added, returns false and sets `error` like the function above. Boards already added stay.
    bool add(const QList<BoardConfig> &configs, QString *error = nullptr);

    /// Pulls a hub with all its boards. `hub` is its name in BoardConfig::hub. Returns false if there is no such hub.
    bool pullHub(const QString &hub);
    /// Plugs in a hub with all its boards. All of them appear in the same moment. If there is no such hub, it is
    /// plugged in already, or the system refuses, returns false and sets `error` (may be null) to one line.
    bool plugHub(const QString &hub, QString *error = nullptr);

    /// Sets the Testbed's clock to 0. Without this call, the clock counts from the constructor on.
    void restartClock();

    /// Returns all boards in the order in which they were added, including boards whose cable is pulled.
    QList<Board *> boards() const;

private:
    struct Private;
    const std::unique_ptr<Private> d;
};

} // namespace JwSimulator
