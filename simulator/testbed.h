#pragma once

#include <simulator/board.h>
#include <simulator/boardconfig.h>

#include <QList>
#include <QString>

#include <memory>

namespace JwSimulator {

/**
 * Simulated USB serial ports, each with a board. This process and the programs that it starts see them.
 *
 * While a Testbed exists, udev, /sys and listings of /dev show only its devices: to QSerialPortInfo, to QSerialPort,
 * and to every program that this process starts meanwhile. A real device can still be opened by its path, for example
 * /dev/ttyS0.
 *
 * Call ensurePreloaded() at the start of main(). Make one Testbed at a time. The Testbed, its boards and their event
 * loop belong to one thread.
 *
 * Testbeds of programs that run side by side choose different port names. If you name ports yourself, choose different
 * names in each program: QSerialPort's lock files have the name of the port.
 */
class Testbed
{
public:
    /// One process can have at most this many simulated devices open.
    static constexpr int maxBoards = 48;

    Testbed();
    /// Pulls all cables and deletes all boards. Leaves no files behind, also no stale lock files of its ports.
    ~Testbed();
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    /// Adds one port with its board; programs see it when this returns. The Testbed owns the board. Returns null if the
    /// port name is taken, there are maxBoards boards, or the system refuses; `error` (may be null) then has one line.
    Board *add(const BoardConfig &config, QString *error = nullptr);
    /// Adds several boards. A board without a port name gets a name that none of the others asks for. Returns false in
    /// the cases above; the boards before the failed one stay.
    bool add(const QList<BoardConfig> &configs, QString *error = nullptr);

    /// Sets the Testbed's clock to 0. It started when the Testbed was made.
    void restartClock();

    /// All boards in the order of adding, including boards whose cable is pulled.
    QList<Board *> boards() const;

private:
    struct Private;
    const std::unique_ptr<Private> d;
};

} // namespace JwSimulator
