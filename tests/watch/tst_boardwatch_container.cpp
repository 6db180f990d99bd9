#include "support/common/eventloop.h"
#include "support/common/processusage.h"
#include "support/programs/sandbox.h"

#include <watch/boardwatch.h>

#include <QCoreApplication>
#include <QTest>

#include <cstdio>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

/// Starts a watch, and prints whether the watch waits for events or lists the ports at an interval. With
/// `isDaemonThere`, the process first listens to the kernel's events, as udev's daemon does.
int showSource(bool isDaemonThere)
{
    if (isDaemonThere) {
        sockaddr_nl address = {};
        address.nl_family = AF_NETLINK;
        address.nl_groups = 1;
        const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
        if (::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            qFatal("cannot listen to the kernel's events");
    }
    ProcessUsage::watchObjects();
    JwDevice::BoardWatch watch;
    watch.setTypes({}); // opens no port of this machine
    watch.start();
    settle();
    std::puts(ProcessUsage::now().timers == 0 ? "events" : "lists");
    return 0;
}

} // namespace

/// Tests how a watch in a container notices ports.
class TestBoardWatchContainer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eventsNeedTheDaemonInTheNetwork_data();
    SANDBOXED void eventsNeedTheDaemonInTheNetwork();
};

void TestBoardWatchContainer::eventsNeedTheDaemonInTheNetwork_data()
{
    QTest::addColumn<QString>("run"); // folder in which the script makes udev's files
    QTest::addColumn<QString>("option");
    QTest::addColumn<QByteArray>("source");
    QTest::newRow("udev's files and daemon")
        << QStringLiteral("/run/udev") << QStringLiteral("-daemon") << QByteArray("events\n");
    QTest::newRow("udev's files, daemon in another network")
        << QStringLiteral("/run/udev") << QStringLiteral("-alone") << QByteArray("lists\n");
    QTest::newRow("no udev") << QStringLiteral("/run/other") << QStringLiteral("-daemon") << QByteArray("lists\n");
}

void TestBoardWatchContainer::eventsNeedTheDaemonInTheNetwork()
{
    QFETCH(QString, run);
    QFETCH(QString, option);
    QFETCH(QByteArray, source);
    const QString script =
        QStringLiteral("mount -t tmpfs tmpfs /run; mkdir -p %1; : > %1/control; exec unshare --net \"$@\"").arg(run);
    const QStringList command = Sandbox::command(Sandbox::allowed().kind, script)
        << QCoreApplication::applicationFilePath() << option;
    const Outcome outcome = runProgram(command.first(), command.mid(1));
    QCOMPARE(outcome.output, source);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QString option = QCoreApplication::arguments().value(1);
    if (option == QLatin1String("-daemon") || option == QLatin1String("-alone"))
        return showSource(option == QLatin1String("-daemon"));
    TestBoardWatchContainer test;
    return runSandboxTest(&test, QCoreApplication::arguments());
}
#include "tst_boardwatch_container.moc"
