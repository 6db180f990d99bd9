// Tests the command that examples/README.md shows for example 07. The command needs a network address.
#include "support/examples/pagefolder.h"
#include "support/programs/neededprogram.h"
#include "support/programs/programrun.h"

#include <QNetworkInterface>
#include <QTest>

#include <algorithm>
#include <cstdio>

namespace {

/// Returns whether this machine has a network address. Without an address, ser2net, which offers a serial port in the
/// network, resolves no name and no number, not even localhost and 127.0.0.1.
bool hasNetworkAddress()
{
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
    return std::any_of(addresses.begin(), addresses.end(), [](const QHostAddress &each) { return !each.isLoopback(); });
}

} // namespace

class TestExamplesNetwork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void commandOfThePageReadsABoardOverTheNetwork();
};

void TestExamplesNetwork::commandOfThePageReadsABoardOverTheNetwork()
{
    NEEDS_PROGRAM("ser2net", "ser2net");
    const PageFolder folder(freeTcpPort());
    ProgramRun run(QStringLiteral("sh"), folder.command("07"));
    run.start();

    WAIT_FOR(run.isOver());

    QVERIFY2(run.output().contains("answer $PJWVER,7300022,1,4,0*0d\n"), run.output() + run.error());
}

int main(int argc, char **argv)
{
    if (!hasNetworkAddress()) {
        constexpr int notRun = 77;
        std::puts("Left out: tst_examples_network: this machine has no network address other than the loopback");
        return notRun;
    }
    QCoreApplication application(argc, argv);
    TestExamplesNetwork test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_examples_network.moc"
