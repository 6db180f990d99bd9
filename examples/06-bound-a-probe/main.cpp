// Limits a probe to two seconds, and says why it did not end earlier.
#include <device/boardrules.h>
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/porterrors.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QTextStream>
#include <QTimer>

#include <utility>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QList<JwDevice::Type> missing = {JwDevice::BoardA, JwDevice::BoardC};
    const auto settle = [&](JwDevice::Type type, const QString &what) {
        out << JwDevice::typeName(type) << what << Qt::endl;
        missing.removeOne(type);
        if (missing.isEmpty())
            app.quit();
    };

    QObject owner; // parent of the search and of the ports that have boards
    auto *initializer = new JwDevice::Initializer(&owner);
    QObject::connect(initializer, &JwDevice::Initializer::deviceInitialized, &app,
                     [&](JwDevice::Type type, JwDevice::Communicator *board) {
                         auto *port = static_cast<QSerialPort *>(board->device());
                         port->setParent(&owner);
                         board->setParent(port);
                         QObject::connect(new JwDevice::PortErrors(port), &JwDevice::PortErrors::portLost, port,
                                          [port] { JwDevice::closeAtOnce(port); });
                         settle(type, QStringLiteral(" is on %1").arg(port->portName()));
                     });
    QObject::connect(initializer, &JwDevice::Initializer::deviceNotFound, &app,
                     [&](JwDevice::Type type) { settle(type, QStringLiteral(" was not found")); });

    // A board that answers, but with no wanted type, keeps the probe open, because the board may still send a wanted
    // type. Only the application knows how long to wait.
    QTimer::singleShot(2000, initializer, [&] {
        for (const JwDevice::Type type : std::as_const(missing))
            out << JwDevice::typeName(type) << " did not come in time" << Qt::endl;
        const QList<JwDevice::PortReport> reports = initializer->portReports();
        for (const JwDevice::PortReport &report : reports) {
            if (report.verdict == JwDevice::PortReport::Silenced)
                out << report.portName << " answered with " << report.reply << Qt::endl;
        }
        initializer->deleteLater(); // also closes all ports that it still owns
        app.exit(1);
    });
    QTimer::singleShot(0, initializer, [&] { initializer->probe(missing); });
    return app.exec();
}
