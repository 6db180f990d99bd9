// Keeps one board: when its cable is pulled, lets go of the port and takes the board again once it is back.
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
    QPointer<JwDevice::Initializer> search; // null when none is under way
    QPointer<QSerialPort> port; // the board's; null while we have none

    const auto lose = [&] {
        if (!port || !port->isOpen())
            return;
        out << "lost the board on " << port->portName() << Qt::endl;
        port->close(); // or it goes on to report errors, without end
        port->deleteLater(); // not delete: we are within a signal of its own
    };
    const auto take = [&](JwDevice::Type, JwDevice::Communicator *board) {
        search->deleteLater(); // not delete: we are within its signal; the ports that it still holds become free
        port = static_cast<QSerialPort *>(board->device());
        port->setParent(&owner);
        board->setParent(port); // goes with its port
        QObject::connect(port, &QSerialPort::errorOccurred, &owner, lose);
        out << "the board is on " << port->portName() << Qt::endl;
    };

    bool told = false;
    const auto giveUp = [&] {
        search->deleteLater(); // the next turn makes a new one
        if (!port && !told)
            out << "no BoardA yet; jwprobe --type BoardA tells why" << Qt::endl;
        told = true;
    };

    // Asking for the list of ports is cheap, works on every system, and finds a board under a new port name too.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &owner, [&] {
        if (port || search || QSerialPortInfo::availablePorts().isEmpty())
            return;
        search = new JwDevice::Initializer(&owner); // each serves one probe
        QObject::connect(search, &JwDevice::Initializer::deviceInitialized, &owner, take);
        // A board that just got its power may need longer than one search.
        QObject::connect(search, &JwDevice::Initializer::deviceNotFound, search, giveUp);
        QTimer::singleShot(3000, search, giveUp); // also while some other board answers
        search->probe({JwDevice::BoardA});
    });
    watch.start(500);
    return app.exec();
}
