// Finds one board of each wanted type, says on which port it is, and ends when the last type is settled,
// with 1 when a board is missing.
#include <device/boardrules.h>
#include <device/communicator.h>
#include <device/initializer.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QList<JwDevice::Type> wanted = {JwDevice::BoardA, JwDevice::BoardB};
    int open = wanted.size();
    int status = 0;
    const auto settle = [&] {
        if (--open == 0)
            app.exit(status);
    };

    QObject owner; // of the boards that are found
    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &app,
                     [&](JwDevice::Type type, JwDevice::Communicator *board) {
                         // Both are ours from here on. The port owns the board, so that they go together.
                         auto *port = static_cast<QSerialPort *>(board->device());
                         port->setParent(&owner);
                         board->setParent(port);
                         // A port whose cable was pulled reports errors without end until it is closed.
                         QObject::connect(port, &QSerialPort::errorOccurred, port, [port] {
                             if (port->isOpen())
                                 port->close();
                         });
                         out << JwDevice::typeName(type) << " is on " << port->portName() << Qt::endl;
                         settle();
                     });
    QObject::connect(&initializer, &JwDevice::Initializer::deviceNotFound, &app, [&](JwDevice::Type type) {
        out << JwDevice::typeName(type) << " was not found" << Qt::endl;
        status = 1;
        settle();
    });

    // Connect first: where no port can be opened, deviceNotFound() comes from within probe(). Probe when the event loop
    // runs: an exit() before it is lost.
    QTimer::singleShot(0, &initializer, [&] { initializer.probe(wanted); });
    return app.exec();
}
