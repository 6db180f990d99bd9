#pragma once

#include <device/portevent.h>
#include <device/portreport.h>
#include <device/type.h>
#include <watch/board.h>
#include <watch/jwwatch_export.h>

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QSerialPortInfo;

namespace JwDevice {

/**
 * Finds boards on USB serial ports, also boards that are plugged in later. Reports when a board is lost and when it is
 * back. The watch works from start() to stop().
 *
 * \code
 * auto *watch = new JwDevice::BoardWatch(this);
 * connect(watch, &JwDevice::BoardWatch::boardFound, this, &Window::useBoard);
 * connect(watch, &JwDevice::BoardWatch::boardBack, this, &Window::useBoard);
 * connect(watch, &JwDevice::BoardWatch::boardLost, this, &Window::forgetBoard);
 * watch->start();
 * \endcode
 *
 * Every candidate port is probed by its own Initializer as soon as the port appears. So a silent port delays no other
 * port, and all boards of a type are found.
 *
 * If no wanted board answers on a port, the watch closes the port. It probes the port again when the port is plugged
 * in again, or when lookAgain() is called. If a board is lost and its port is still there, the watch probes the port
 * again and again, with pauses of 500 ms, until the board answers. After lend(), and after the application deleted the
 * board's Communicator, the watch does this only if takeBack() is called.
 *
 * If a port can't be opened, for example because another program uses it, the watch tries again after a pause. The
 * pauses grow from 500 ms to 8 s. On Linux, the watch also tries 20 ms after a program closed the port, and 20 ms after
 * the permissions of the port changed, if the application may read the port.
 *
 * If a USB device has several ports, the watch probes each of them. When a board answers on one of these ports, the
 * watch closes the other ports. They stay closed also after lend(), and after the application deleted the board's
 * Communicator. The watch probes the ports that it closed again if the board is lost in another way, or after
 * takeBack().
 *
 * On Linux, udev reports new and removed ports, so the watch needs neither a timer nor a thread to notice them. On
 * other systems, and where no udev runs, the watch lists the ports once a second (see setPollInterval()).
 *
 * The watch owns the Communicator and the port of each board. After each boardFound() and each boardBack() of a board,
 * the watch emits one boardLost() for this board before it deletes them. Only the destructor of the watch deletes them
 * without a signal. Receivers of the signals may do anything, for example delete a board's Communicator, delete the
 * watch, or run an event loop. Delete a board's port only with QObject::deleteLater().
 *
 * The watch works in the event loop of its thread. All watches, Initializers and Communicators of a process belong to
 * one thread.
 */
class JWWATCH_EXPORT BoardWatch : public QObject
{
    Q_OBJECT

public:
    /// How long the watch leaves a lent board alone.
    enum Lending {
        UntilTakenBack, ///< until takeBack()
        UntilPluggedAgain, ///< until the board's port has disappeared and appeared again, or until takeBack()
    };

    /// Creates a watch that opens no port before start(). `parent` owns the watch, as every QObject owns its children.
    explicit BoardWatch(QObject *parent = nullptr);
    /// Closes all ports and deletes the Communicators. Emits no signal.
    ~BoardWatch() override;

    // The following settings take effect at the next start().

    /// Sets the wanted types of board. By default, all types (see boardTypes()). If `types` is empty, no port is
    /// opened.
    void setTypes(const QList<JwDevice::Type> &types);
    QList<JwDevice::Type> types() const; ///< returns the value of setTypes()
    /// Sets the function that returns whether `port` is a candidate. Only candidates are probed. By default, and if
    /// `rule` is empty, the function is isCandidate(). The watch calls `rule` for every port whenever it lists the
    /// ports. If a board's port is no longer a candidate, the board is lost (Board::CablePulled). Like the receivers of
    /// the signals, `rule` may do anything.
    void setCandidateRule(std::function<bool(const QSerialPortInfo &port)> rule);
    /// Sets ports that are never opened. Each entry is a port name ("ttyACM0"), a location ("/dev/ttyACM0"), a USB
    /// serial number, or a USB vendor and product id in hexadecimal digits ("0483:5740"). On Linux, a port whose udev
    /// property `JWDEVICE_IGNORE` is "1" is never opened either.
    void setNeverOpened(const QStringList &ports);
    QStringList neverOpened() const; ///< returns the value of setNeverOpened()
    /// Sets the largest number of retry rounds in each probe. A retry round asks a silent port again. The default is 3.
    /// See Initializer::setMaxRetries().
    void setMaxRetries(uint maxRetries);
    uint maxRetries() const; ///< returns the value of setMaxRetries()
    /// Sets the time in ms that each probe waits before it opens the port. The delay is used only if BoardC is wanted,
    /// because that board starts slowly. The default is 0.
    void setDelay(int delay);
    int delay() const; ///< returns the value of setDelay()
    /// Sets a time in ms. If a board sends no byte for this time, the watch writes the board's query again. If no byte
    /// arrives within replyTime (400 ms) after that, the board is lost (Board::NoAnswer). The default, 0, turns this
    /// check off. The application also receives the answers to these queries.
    void setCheckInterval(int interval);
    int checkInterval() const; ///< returns the value of setCheckInterval()
    /// Sets the interval in ms at which the watch lists the ports if the system reports no events. The default is 1000,
    /// the smallest value is 1.
    void setPollInterval(int interval);
    int pollInterval() const; ///< returns the value of setPollInterval()

    /// Starts to watch. The signals are emitted later, from the event loop. Does nothing if isStarted().
    void start();
    /// Ends the watch and closes all ports. Emits boardLost() for each board. After the next start(), the watch reports
    /// every board by boardFound(), also a board that it knew before.
    void stop();
    bool isStarted() const; ///< returns true between start() and stop()

    /// Returns the boards that were found and are not lost, in the alphabetical order of their port names.
    QList<JwDevice::Board> boards() const;
    /// Returns all serial ports of the system, also ports that are not candidates. Empty if the watch is stopped.
    QList<QSerialPortInfo> systemPorts() const;
    /// Returns the id (see Board::id) that a board on the port `portName` has, or would have if it were found. Empty if
    /// the system has no candidate port with this name.
    QString boardId(const QString &portName) const;
    /// Returns a report for each candidate port of the system. The reports show why no board was found on a port.
    ///
    /// The watch itself leaves some ports closed: excluded ports, the other ports of a board's USB device, the port of
    /// a lent board, and the port of a board whose Communicator the application deleted. Then `verdict` is NotOpened,
    /// `error` is NoError, and `errorText` says why the port is closed.
    QList<JwDevice::PortReport> portReports() const;

    /**
     * Closes the port of the board `id`, so that another program can use the board, and emits boardLost(). `lending`
     * says how long the watch leaves the board alone, at every port and on all ports of its USB device. Returns false
     * if boards() contains no board with this id.
     */
    bool lend(const QString &id, Lending lending = UntilTakenBack);
    /// Looks again for a board after lend(), or after the application deleted the board's Communicator. Returns false
    /// if the board `id` was lost for neither of these reasons.
    bool takeBack(const QString &id);

    /// Sets a function that is called at every event of every probe. Takes effect at once. See
    /// Initializer::setPortObserver().
    void setPortObserver(std::function<void(const JwDevice::PortEvent &event)> observer);

public Q_SLOTS:
    /// Lists the ports again. Probes the ports without a board again: ports on which no wanted board answered, ports
    /// that could not be opened, and ports that lost their board. Does not probe ports that the watch leaves alone; see
    /// setNeverOpened(), lend() and Board::Released.
    void lookAgain();
    /// Sends every board its query. If no byte arrives from a board within replyTime (400 ms), the board is lost.
    /// On Linux, the watch itself calls this function after the system was suspended, and after the clock was set.
    void checkBoards();

Q_SIGNALS:
    /// Emitted when a wanted board answered. Its port is open. If the board was lost since start(), boardBack() is
    /// emitted instead.
    void boardFound(const JwDevice::Board &board);
    /// Emitted when a board can't be used any more; `board.loss` says why. Its port is closed.
    void boardLost(const JwDevice::Board &board);
    /// Emitted when a board that was lost answered again, perhaps on another port. `board.id` and `board.type` are the
    /// same as before. `board.communicator` is a new Communicator.
    void boardBack(const JwDevice::Board &board);
    /// Emitted when boards(), systemPorts() or portReports() may have changed.
    void portsChanged();

private:
    class JWWATCH_NO_EXPORT Private;
    std::unique_ptr<Private> m_private;
};

} // namespace JwDevice
