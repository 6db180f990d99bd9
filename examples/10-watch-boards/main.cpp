// Keeps all boards that come and go, and prints what they send. Runs until Ctrl-C.
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
        // The connection ends with the board, so a board that is back needs a new one.
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

    watch.setCheckInterval(5000); // a board that no longer answers is gone, although its cable is plugged in
    watch.start();
    return app.exec();
}
