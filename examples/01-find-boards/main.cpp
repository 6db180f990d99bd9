// Finds one board of each wanted type and prints its port. Ends when every type is found or missing; the exit status
// is 1 if a type is missing.
#include <device/boardrules.h>
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QList<JwDevice::Type> wanted = {JwDevice::BoardA, JwDevice::BoardB};
    auto open = wanted.size();
    int status = 0;
    const auto settle = [&] {
        if (--open == 0)
            app.exit(status);
    };

    QObject owner; // parent of the ports that have boards
    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &app,
                     [&](JwDevice::Type type, JwDevice::Communicator *board) {
                         // Port and board now belong to this program. `owner` deletes the port, and the port deletes
                         // the board.
                         auto *port = static_cast<QSerialPort *>(board->device());
                         port->setParent(&owner);
                         board->setParent(port);
                         // A port whose cable was pulled reports errors again and again, so close the port.
                         auto *errors = new JwDevice::PortErrors(port); // a child of the port
                         QObject::connect(errors, &JwDevice::PortErrors::portLost, port,
                                          [port] { JwDevice::closeAtOnce(port); });
                         out << JwDevice::typeName(type) << " is on " << port->portName() << Qt::endl;
                         settle();
                     });
    QObject::connect(&initializer, &JwDevice::Initializer::deviceNotFound, &app, [&](JwDevice::Type type) {
        out << JwDevice::typeName(type) << " was not found" << Qt::endl;
        status = 1;
        settle();
    });

    // Connect before probe(), because probe() itself emits deviceNotFound() if no port opens. Call probe() in the event
    // loop, because an exit() before the event loop has no effect.
    QTimer::singleShot(0, &initializer, [&] { initializer.probe(wanted); });
    return app.exec();
}
