// Finds all boards, also boards that are plugged in later, and prints what they send. Runs until Ctrl-C.
#include <device/boardrules.h>
#include <device/communicator.h>
#include <watch/boardwatch.h>

#include <QCoreApplication>
#include <QTextStream>

using JwDevice::Board;
using JwDevice::BoardWatch;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    BoardWatch watch; // owns the boards and their ports

    const auto useBoard = [&](const Board &board) {
        out << board.id << " is a " << JwDevice::typeName(board.type) << " on " << board.portName << Qt::endl;
        // A board that is back has a new Communicator, so it needs a new connection.
        QObject::connect(board.communicator, QOverload<>::of(&JwDevice::Communicator::readyRead), &app,
                         [&out, id = board.id, communicator = board.communicator] {
                             QString payload;
                             if (communicator->readPayload(payload))
                                 out << id << " sends " << payload.trimmed() << Qt::endl;
                         });
    };
    QObject::connect(&watch, &BoardWatch::boardFound, &app, useBoard);
    QObject::connect(&watch, &BoardWatch::boardBack, &app, useBoard);
    QObject::connect(&watch, &BoardWatch::boardLost, &app, [&](const Board &board) {
        out << board.id << " is gone: " << JwDevice::lossName(board.loss) << Qt::endl;
    });

    watch.setCheckInterval(5000); // also notices a board that stops answering while its cable is plugged in
    watch.start();
    return app.exec();
}
