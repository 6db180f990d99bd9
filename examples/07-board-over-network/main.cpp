// Talks to a board on another machine, whose port ser2net offers there over TCP: any QIODevice will do.
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

    QTcpSocket socket; // before the board's object, which only points to it, so that it outlives it
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
    // Not before: the Communicator writes to whatever it is bound to and does not open it.
    QObject::connect(&socket, &QTcpSocket::connected, &app, [&] {
        out << "connected" << Qt::endl;
        board.writePayload(QStringLiteral("$PJWVER*0c\r\n"));
    });
    // A network has more ways to fall silent than a cable, so the wait has an end.
    QObject::connect(&socket, &QTcpSocket::errorOccurred, &app, [&] { fail(socket.errorString()); });
    QTimer::singleShot(5000, &app, [&] { fail(QStringLiteral("5 seconds have passed")); });
    socket.connectToHost(arguments.value(1), number);
    return app.exec();
}
