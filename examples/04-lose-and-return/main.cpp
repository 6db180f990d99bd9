// Keeps one board: when its cable is pulled, closes the port; when the board is back, takes it again.
#include <device/communicator.h>
#include <device/initializer.h>

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
    QObject owner; // of the search and of the board
    QPointer<JwDevice::Initializer> search; // null while no search runs
    QPointer<QSerialPort> port; // the board's port; null while we have no board

    const auto onPortError = [&] {
        if (!port || !port->isOpen())
            return;
        out << "lost the board on " << port->portName() << Qt::endl;
        port->close(); // otherwise the port reports errors without end
        port->deleteLater(); // not delete: the port emits the signal that called us
    };
    const auto onBoardFound = [&](JwDevice::Type, JwDevice::Communicator *board) {
        search->deleteLater(); // not delete: the search emits the signal that called us; this frees its other ports
        port = static_cast<QSerialPort *>(board->device());
        port->setParent(&owner);
        board->setParent(port); // deleted with its port
        QObject::connect(port, &QSerialPort::errorOccurred, &owner, onPortError);
        out << "the board is on " << port->portName() << Qt::endl;
    };

    bool told = false;
    const auto giveUp = [&] {
        search->deleteLater(); // the timer below makes a new one
        if (!port && !told)
            out << "no BoardA yet; jwprobe --type BoardA says why" << Qt::endl;
        told = true;
    };

    // Listing the ports is cheap, works on every system, and also finds a board under a new port name.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &owner, [&] {
        if (port || search || QSerialPortInfo::availablePorts().isEmpty())
            return;
        search = new JwDevice::Initializer(&owner); // one for each probe
        QObject::connect(search, &JwDevice::Initializer::deviceInitialized, &owner, onBoardFound);
        // A board that was just plugged in may need longer than one search.
        QObject::connect(search, &JwDevice::Initializer::deviceNotFound, search, giveUp);
        QTimer::singleShot(3000, search, giveUp); // a board of another type would keep the search open
        search->probe({JwDevice::BoardA});
    });
    watch.start(500);
    return app.exec();
}
