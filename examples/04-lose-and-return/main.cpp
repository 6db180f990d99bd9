// Stays connected with one board. Closes the port when the cable is pulled, and finds the board when it is back.
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>

#include <QCoreApplication>
#include <QPointer>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QObject owner; // parent of the search and of the board's port
    QPointer<JwDevice::Initializer> search; // the running search; null while no search runs
    QPointer<QSerialPort> port; // the board's port; null while no board is connected

    const auto onPortLost = [&] {
        out << "lost the board on " << port->portName() << Qt::endl;
        JwDevice::closeAtOnce(port); // otherwise the port reports errors again and again
        port->deleteLater(); // not delete, because the port emits the signal that called this function
    };
    const auto onBoardFound = [&](JwDevice::Type, JwDevice::Communicator *board) {
        // The deleted search closes its other ports. Not `delete`, because the search is emitting the signal.
        search->deleteLater();
        port = static_cast<QSerialPort *>(board->device());
        port->setParent(&owner);
        board->setParent(port); // so the board is deleted with its port
        QObject::connect(new JwDevice::PortErrors(port), &JwDevice::PortErrors::portLost, &owner, onPortLost);
        out << "the board is on " << port->portName() << Qt::endl;
    };

    bool told = false;
    const auto giveUp = [&] {
        search->deleteLater(); // the timer below starts a new search
        if (!port && !told)
            out << "no BoardA yet; jwprobe --type BoardA says why" << Qt::endl;
        told = true;
    };

    // Look for ports twice a second. This is cheap, works on every system, and also finds the board under a new name.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &owner, [&] {
        if (port || search || QSerialPortInfo::availablePorts().isEmpty())
            return;
        search = new JwDevice::Initializer(&owner); // use a new Initializer for each probe
        QObject::connect(search, &JwDevice::Initializer::deviceInitialized, &owner, onBoardFound);
        // Do not stop when a search fails, because a board that was just plugged in may need longer than one search.
        QObject::connect(search, &JwDevice::Initializer::deviceNotFound, search, giveUp);
        QTimer::singleShot(3000, search, giveUp); // otherwise a board of another type keeps the search open
        search->probe({JwDevice::BoardA});
    });
    watch.start(500);
    return app.exec();
}
