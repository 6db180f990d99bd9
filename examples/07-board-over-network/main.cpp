// Talks over TCP to a board on another machine, where ser2net offers the port. A Communicator can use any QIODevice.
#include <device/communicator.h>

#include <QCoreApplication>
#include <QTcpSocket>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QStringList arguments = app.arguments();
    const quint16 number = arguments.value(2).toUShort();
    if (number == 0) {
        out << "Usage: " << arguments.value(0) << " HOST PORT" << Qt::endl;
        return 2;
    }

    QTcpSocket socket; // declared first, because it must exist longer than the Communicator
    JwDevice::Communicator board;
    board.setIODevice(&socket);
    const auto fail = [&](const QString &why) {
        out << "no answer: " << why << Qt::endl;
        app.exit(1);
    };

    QObject::connect(&board, QOverload<>::of(&JwDevice::Communicator::readyRead), &app, [&] {
        QString payload;
        board.readPayload(payload);
        out << "answer " << payload.trimmed() << Qt::endl;
        app.quit();
    });
    // Write only after the socket is connected, because the Communicator does not open its device.
    QObject::connect(&socket, &QTcpSocket::connected, &app, [&] {
        out << "connected" << Qt::endl;
        board.writePayload(QStringLiteral("$PJWVER*0c\r\n"));
    });
    // A network can become silent without an error, so limit the wait.
    QObject::connect(&socket, &QTcpSocket::errorOccurred, &app, [&] { fail(socket.errorString()); });
    QTimer::singleShot(5000, &app, [&] { fail(QStringLiteral("5 seconds have passed")); });
    socket.connectToHost(arguments.value(1), number);
    return app.exec();
}
