// Sends payloads to a board, reports when they leave, and reads the answers.
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QSet>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QObject owner; // parent of the board's port
    QSet<uint> waiting; // ids of written payloads that no signal has reported
    int answers = 0;

    const auto talk = [&](JwDevice::Type, JwDevice::Communicator *board) {
        auto *port = static_cast<QSerialPort *>(board->device());
        port->setParent(&owner);
        board->setParent(port);
        QObject::connect(new JwDevice::PortErrors(port), &JwDevice::PortErrors::portLost, port, [&app, port] {
            JwDevice::closeAtOnce(port);
            app.exit(1);
        });

        // The search's query was payload 1, so the payloads below have the ids 2, 3 and 4. The port reports one number
        // for the bytes of all three. The Communicator counts this number from payload 1 on, so transferred() is
        // emitted for the payloads 1, 2 and 3, and never for payload 4.
        QObject::connect(board, &JwDevice::Communicator::transferred, &owner, [&](uint id) {
            if (waiting.remove(id))
                out << "payload " << id << " is on its way" << Qt::endl;
        });
        QObject::connect(board, QOverload<>::of(&JwDevice::Communicator::readyRead), &owner, [&, board] {
            // Read all payloads now, because the Communicator keeps only the newest six.
            for (QString payload; board->readPayload(payload);) {
                out << "answer " << ++answers << " is " << payload.trimmed() << Qt::endl;
                if (answers == 3)
                    app.quit();
            }
        });
        // The Communicator adds nothing to a payload, so write whole sentences with checksum and line end.
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
