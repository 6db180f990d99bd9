// Finds one board of each wanted type and prints its port. Ends when every type is found or missing; the exit status
// is 1 if one is missing.
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
                         // Port and board are ours now. The port owns the board, so that both are deleted together.
                         auto *port = static_cast<QSerialPort *>(board->device());
                         port->setParent(&owner);
                         board->setParent(port);
                         // A port whose cable was pulled reports errors without end; so close it.
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

    // Connect first: if no port opens, probe() itself emits deviceNotFound(). Probe in the event loop: an exit() before
    // it has no effect.
    QTimer::singleShot(0, &initializer, [&] { initializer.probe(wanted); });
    return app.exec();
}
