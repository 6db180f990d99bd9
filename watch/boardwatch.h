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
 * Finds boards on USB serial ports from start() to stop(), also boards that are plugged in later, and reports when a
 * board is lost and when it is back.
 *
 * \code
 * auto *watch = new JwDevice::BoardWatch(this);
 * connect(watch, &JwDevice::BoardWatch::boardFound, this, &Window::useBoard);
 * connect(watch, &JwDevice::BoardWatch::boardBack, this, &Window::useBoard);
 * connect(watch, &JwDevice::BoardWatch::boardLost, this, &Window::forgetBoard);
 * watch->start();
 * \endcode
 *
 * Every port is probed by its own Initializer, in the moment when the port appears. So a silent port delays no other
 * port, and all boards of a type are found. A port on which no wanted board answers is closed, and left alone until it
 * is plugged in again or lookAgain() is called. A port that can't be opened, for example because another program uses
 * it, is tried again twice a second. A USB device with several ports is asked on each, until one answers as a board.
 *
 * On Linux the watch gets the kernel's events from udev, so it needs neither a timer nor a thread. On other systems,
 * and where no udev runs, it lists the ports once a second (see setPollInterval()).
 *
 * The watch owns its boards: Communicator and port. Each boardFound() or boardBack() of an id is followed by one
 * boardLost() of that id before anything is deleted. Only the destructor closes the boards without a signal. Receivers
 * of the signals may do anything, for example delete a board's Communicator, delete the watch, or run an event loop.
 * Delete a board's port only with QObject::deleteLater().
 *
 * The watch works in the event loop of its thread. All watches, Initializers and Communicators of a process belong to
 * one thread.
 */
class JWWATCH_EXPORT BoardWatch : public QObject
{
    Q_OBJECT

public:
    /// How long a lent port is left alone.
    enum Lending {
        UntilTakenBack, ///< until takeBack()
        UntilPluggedAgain, ///< until the port has gone and come again, or until takeBack()
    };

    /// Does nothing before start(). `parent` owns the watch, as every QObject owns its children.
    explicit BoardWatch(QObject *parent = nullptr);
    /// Closes all boards without a signal.
    ~BoardWatch() override;

    // The following settings take effect at the next start().

    /// Sets the wanted types of board. By default, all types (see boardTypes()). If `types` is empty, no port is opened.
    void setTypes(const QList<JwDevice::Type> &types);
    QList<JwDevice::Type> types() const; ///< returns the value of setTypes()
    /// Sets which ports are probed. Without a rule, isCandidate().
    void setCandidateRule(std::function<bool(const QSerialPortInfo &port)> rule);
    /// Sets ports that are never opened. Each entry is a port name ("ttyACM0"), a location ("/dev/ttyACM0"), a USB
    /// serial number, or a USB vendor and product id in hexadecimal digits ("0483:5740"). On Linux, a port whose udev
    /// property `JWDEVICE_IGNORE` is "1" is never opened either.
    void setNeverOpened(const QStringList &ports);
    QStringList neverOpened() const; ///< returns the value of setNeverOpened()
    /// Sets how many rounds ask a silent port again. The default is 3. See Initializer::setMaxRetries().
    void setMaxRetries(uint maxRetries);
    uint maxRetries() const; ///< returns the value of setMaxRetries()
    /// Sets the time in ms between the appearance of a port and its probe, if BoardC is wanted. The default is 0.
    void setDelay(int delay);
    int delay() const; ///< returns the value of setDelay()
    /// Sets the time in ms after which a board that said nothing is asked its query again. If it does not answer within
    /// replyTime, it is lost. 0, the default, turns this check off. The application receives the answers too.
    void setCheckInterval(int interval);
    int checkInterval() const; ///< returns the value of setCheckInterval()
    /// Sets the time in ms between two lists of the ports, where the system reports no events. The default is 1000,
    /// the smallest value 1.
    void setPollInterval(int interval);
    int pollInterval() const; ///< returns the value of setPollInterval()

    /// Starts to watch. The signals are emitted later, from the event loop. If the watch runs, does nothing.
    void start();
    /// Ends the watch and closes all ports. Emits boardLost() for each board. The next start() knows no board, so it
    /// finds each board by boardFound().
    void stop();
    bool isStarted() const; ///< returns true between start() and stop()

    /// Returns the boards that are there, sorted by port name.
    QList<JwDevice::Board> boards() const;
    /// Returns a report for each candidate port of the system. The reports show why no board was found on a port. If
    /// the watch does not open a port, `errorText` says why and `error` is NoError.
    QList<JwDevice::PortReport> portReports() const;

    /**
     * Closes the port of the board `id`, so that another program can use it, and emits boardLost(). The watch leaves
     * the board alone at every port until `lending` says. Returns false if there is no such board.
     */
    bool lend(const QString &id, Lending lending = UntilTakenBack);
    /// Ends lend(), and looks for the board again. Also for a board whose Communicator the application deleted. Returns
    /// false if no board with this id is lent or released.
    bool takeBack(const QString &id);

    /// Sets a function that is called at every event of every probe. See Initializer::setPortObserver().
    void setPortObserver(std::function<void(const JwDevice::PortEvent &event)> observer);

public Q_SLOTS:
    /// Probes all ports again on which no board was found.
    void lookAgain();
    /// Asks every board whether it is still there. A board that does not answer within replyTime is lost. On Linux, the
    /// watch does this after the system was suspended, or after the clock was set.
    void checkBoards();

Q_SIGNALS:
    /// Emitted when a wanted board answered that was not there before. Its port is open.
    void boardFound(const JwDevice::Board &board);
    /// Emitted when a board can't be used any more; `board.loss` says why. Its port is closed.
    void boardLost(const JwDevice::Board &board);
    /// Emitted when a board that was lost answered again, perhaps on another port. Its id is the same as before.
    void boardBack(const JwDevice::Board &board);
    /// Emitted when portReports() or boards() may have changed.
    void portsChanged();

private:
    class JWWATCH_NO_EXPORT Private;
    std::unique_ptr<Private> m_private;
};

} // namespace JwDevice
