// Reads serial ports with QSerialPort alone: the comparison for benchmarks/bridge.py. Asks each board again and again
// for its version. Prints how many bytes came, and the processor time for them, and ends.
// Usage: serialread MILLISECONDS PORT...
#include <QCoreApplication>
#include <QSerialPort>
#include <QTimer>

#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

namespace {

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 3) {
        std::fprintf(stderr, "Usage: serialread MILLISECONDS PORT...\n");
        return 2;
    }
    qint64 bytes = 0;
    std::vector<std::unique_ptr<QSerialPort>> ports;
    for (const QString &name : arguments.mid(2)) {
        ports.push_back(std::make_unique<QSerialPort>(name));
        QSerialPort *const port = ports.back().get();
        if (!port->open(QIODevice::ReadWrite)) {
            std::fprintf(stderr, "serialread: can't open %s\n", qPrintable(name));
            return 1;
        }
        QObject::connect(port, &QSerialPort::readyRead, [port, &bytes] { bytes += port->readAll().size(); });
    }
    for (const auto &port : ports)
        port->write("$PJWVER*0c\r\n");
    double before = 0;
    QTimer::singleShot(1000, [&] { // when all ports send
        before = processorSeconds();
        bytes = 0;
    });
    QTimer::singleShot(1000 + arguments.at(1).toInt(), [&] {
        std::printf("%lld %.3f\n", static_cast<long long>(bytes), processorSeconds() - before);
        QCoreApplication::quit();
    });
    return QCoreApplication::exec();
}
