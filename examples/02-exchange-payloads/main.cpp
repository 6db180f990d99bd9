// Sends payloads to a board, follows their way out, and reads the answers.
#include <device/communicator.h>
#include <device/initializer.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QSet>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QObject owner; // of the board
    QSet<uint> waiting; // ids of written payloads that are not on their way yet
    int answers = 0;

    const auto talk = [&](JwDevice::Type, JwDevice::Communicator *board) {
        auto *port = static_cast<QSerialPort *>(board->device());
        port->setParent(&owner);
        board->setParent(port);
        QObject::connect(port, &QSerialPort::errorOccurred, port, [&app, port] {
            if (!port->isOpen())
                return;
            port->close();
            app.exit(1);
        });

        // A sign of progress, not a receipt. Each report of the port counts again from the first payload, which was the
        // search's query. So payload 4 goes out with 2 and 3 here, but no signal names it.
        QObject::connect(board, &JwDevice::Communicator::transferred, &owner, [&](uint id) {
            if (waiting.remove(id))
                out << "payload " << id << " is on its way" << Qt::endl;
        });
        QObject::connect(board, QOverload<>::of(&JwDevice::Communicator::readyRead), &owner, [&, board] {
            // Read all payloads now: the Communicator keeps only the newest six.
            for (QString payload; board->readPayload(payload);) {
                out << "answer " << ++answers << " is " << payload.trimmed() << Qt::endl;
                if (answers == 3)
                    app.quit();
            }
        });
        // The Communicator sends payloads unchanged, so write whole sentences with checksum and line end.
        for (int i = 0; i < 3; ++i)
            waiting.insert(board->writePayload(QStringLiteral("$PJWVER*0c\r\n")));
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
