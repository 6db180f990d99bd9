// Finds a board by its sentences, then uses a binary protocol on the same port, for example that of a boot loader. Here
// the program asks for a block of eight bytes and prints the bytes.
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>
#include <device/wholelines.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QObject owner; // parent of the port
    constexpr int blockSize = 8;
    // Put your boot loader's request here. A simulated board answers the request below.
    const QByteArray request = "$PJWVER*0c\r\n";

    const auto talk = [&](JwDevice::Type, JwDevice::Communicator *board) {
        // The cast is safe, because every port that an Initializer hands over has this class.
        auto *port = static_cast<JwDevice::WholeLines<QSerialPort> *>(board->device());
        port->setParent(&owner);
        board->setIODevice(nullptr); // otherwise the Communicator takes the bytes that this program reads
        board->deleteLater(); // not delete, because the board emits the signal that called this function
        port->setWholeLines(false); // otherwise bytes can be read only after a line end
        QObject::connect(new JwDevice::PortErrors(port), &JwDevice::PortErrors::portLost, &owner, [&app, port] {
            JwDevice::closeAtOnce(port);
            app.exit(1);
        });
        QObject::connect(port, &QSerialPort::readyRead, &owner, [&, port] {
            if (port->bytesAvailable() < blockSize)
                return;
            out << "block " << port->read(blockSize).toHex(' ') << Qt::endl;
            out << blockSize << " bytes from " << port->portName() << Qt::endl;
            port->disconnect(&owner);
            app.quit();
        });
        port->write(request);
    };

    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &owner, talk);
    QObject::connect(&initializer, &JwDevice::Initializer::deviceNotFound, &app, [&] {
        out << "no BoardA; jwprobe --type BoardA says why" << Qt::endl;
        app.exit(1);
    });
    QTimer::singleShot(0, &initializer, [&] { initializer.probe({JwDevice::BoardA}); });
    return app.exec();
}
