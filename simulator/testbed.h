#pragma once

#include <simulator/board.h>
#include <simulator/boardconfig.h>

#include <QtCore/QList>
#include <QtCore/QString>

#include <memory>

namespace JwSimulator {

/**
 * The simulated USB serial ports of this process and of the programs that it starts, with a board on each.
 *
 * While one exists, udev, /sys and listings of /dev show nothing but its devices: to QSerialPortInfo, to QSerialPort,
 * and to any other program started meanwhile. (A device of the machine that is named outright, such as /dev/ttyS0, is
 * still there.) Call ensurePreloaded() first thing in main(). At most one Testbed at a time; it, its boards and their
 * event loop belong to one thread. Testbeds of programs that run side by side choose different port names. Names that
 * you give must differ too: the lock files of QSerialPort go by the name.
 */
class Testbed
{
public:
    /** So many devices can be open at a time in one process under simulation. */
    static constexpr int maxBoards = 48;

    Testbed();
    /** Pulls all cables, deletes all boards, and leaves nothing behind in the file system. Stale lock files of its
     * ports are removed too. */
    ~Testbed();
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    /** Adds one port with its board, which is there at once and belongs to the Testbed. Null and one line in @p error
     *  (may be null) when the port name is taken, the lot is full, or the system refuses. */
    Board *add(const BoardConfig &config, QString *error = nullptr);
    /** Adds several, of which those without a port name get names that no other of them asks for. False as add(); the
     *  ones before the fault stay. */
    bool add(const QList<BoardConfig> &configs, QString *error = nullptr);

    /** Lets the boards' journals count their milliseconds from now; at first they count from the Testbed's making. */
    void restartClock();

    /** In the order of adding; those whose cable is pulled included. */
    QList<Board *> boards() const;

private:
    struct Private;
    const std::unique_ptr<Private> d;
};

} // namespace JwSimulator
