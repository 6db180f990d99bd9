// Simulates a BoardC in this process, and lists the ports that this process then sees.
#include <simulator/preload.h>
#include <simulator/testbed.h>

#include <QCoreApplication>
#include <QSerialPortInfo>

#include <cstdio>

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
    QCoreApplication application(argc, argv);
    JwSimulator::Testbed testbed;
    QString error;
    const auto config = JwSimulator::BoardConfig::fromText(QStringLiteral("BoardC,port=ttyPKGC0"), &error);
    if (!config || !testbed.add(*config, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    for (const QSerialPortInfo &port : QSerialPortInfo::availablePorts())
        std::printf("simulated %s\n", qPrintable(port.portName()));
    return 0;
}
