#include <common/portname.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace JwTools;

/// Tests how names of ports are read from the command line, and their order in lists.
class TestPortName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameAndFileNameThePort_data();
    void nameAndFileNameThePort();
    void linkNamesThePortBehindIt();
    void linkBesideItsPortIsRelative();
    void linkToNoPortStaysAsItIs();
    void circleOfLinksEnds();
    void portsAreSortedByTheirNumbers_data();
    void portsAreSortedByTheirNumbers();
    void orderIsTheSameWhateverTheFirstOrderWas();
};

void TestPortName::nameAndFileNameThePort_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("name");
    const auto row = [](const char *given, const char *name) {
        QTest::newRow(given) << QString::fromLatin1(given) << QString::fromLatin1(name);
    };
    row("ttyACM0", "ttyACM0");
    row("/dev/ttyACM0", "ttyACM0");
    row("/dev/pts/3", "pts/3");
    row("pts/3", "pts/3");
    row("/dev/", "");
    row("", "");
    row("/home/me/ttyACM0", "/home/me/ttyACM0");
}

void TestPortName::nameAndFileNameThePort()
{
    QFETCH(QString, given);
    QTEST(portName(given), "name");
}

void TestPortName::linkNamesThePortBehindIt()
{
    const QTemporaryDir folder;
    const QString link = folder.filePath(QStringLiteral("usb-maker_board-if00"));
    QVERIFY(QFile::link(QStringLiteral("/dev/pts/7"), link));
    QCOMPARE(portName(link), QStringLiteral("pts/7"));
}

void TestPortName::linkBesideItsPortIsRelative()
{
    // This folder stands for /dev, where only root may make links.
    const QTemporaryDir folder;
    const QString dev = folder.path() + QLatin1Char('/');
    QVERIFY(QDir(dev).mkpath(QStringLiteral("serial/by-id")));
    QVERIFY(QFile::link(QStringLiteral("../../ttyACM7"), dev + QStringLiteral("serial/by-id/first")));
    QVERIFY(QFile::link(QStringLiteral("first"), dev + QStringLiteral("serial/by-id/second")));
    QCOMPARE(portName(dev + QStringLiteral("serial/by-id/first"), dev), QStringLiteral("ttyACM7"));
    QCOMPARE(portName(dev + QStringLiteral("serial/by-id/second"), dev), QStringLiteral("ttyACM7"));
    QCOMPARE(portName(QStringLiteral("serial/by-id/first"), dev), QStringLiteral("ttyACM7"));
}

void TestPortName::linkToNoPortStaysAsItIs()
{
    const QTemporaryDir folder;
    const QString link = folder.filePath(QStringLiteral("link"));
    QVERIFY(QFile::link(QStringLiteral("/nowhere/ttyACM7"), link));
    QCOMPARE(portName(link), link);
}

void TestPortName::circleOfLinksEnds()
{
    const QTemporaryDir folder; // stands for /dev
    const QString dev = folder.path() + QLatin1Char('/');
    QVERIFY(QFile::link(dev + QStringLiteral("first"), dev + QStringLiteral("second")));
    QVERIFY(QFile::link(dev + QStringLiteral("second"), dev + QStringLiteral("first")));
    QVERIFY(QStringList({QStringLiteral("first"), QStringLiteral("second")})
                .contains(portName(dev + QStringLiteral("first"), dev)));
}

void TestPortName::portsAreSortedByTheirNumbers_data()
{
    QTest::addColumn<QStringList>("sorted");
    const auto row = [](const char *name, const char *sorted) {
        QTest::newRow(name) << QString::fromLatin1(sorted).split(QLatin1Char(' '));
    };
    row("letters first, then numbers", "rfcomm1 ttyACM9 ttyACM10 ttyUSB0");
    row("number within", "pci2/tty9 pci10/tty1");
    row("letters where others have a number", "tty1A tty9 tty10 ttyA");
    row("without a number", "tty tty0 ttyS");
    row("zeros in front", "ttyS1 ttyS02 ttyS3");
    row("same number", "ttyS01 ttyS1 ttyS2");
    row("beyond 64 bits", "ttyS99999999999999999999 ttyS100000000000000000000");
}

void TestPortName::portsAreSortedByTheirNumbers()
{
    QFETCH(QStringList, sorted);
    for (int i = 0; i < sorted.size(); ++i) {
        for (int j = 0; j < sorted.size(); ++j) {
            QVERIFY2(isPortBefore(sorted.at(i), sorted.at(j)) == (i < j),
                     qPrintable(sorted.at(i) + QLatin1Char(' ') + sorted.at(j)));
        }
    }
}

void TestPortName::orderIsTheSameWhateverTheFirstOrderWas()
{
    QStringList names = QString::fromLatin1("L10 L1A L9 L09 LA").split(QLatin1Char(' '));
    std::sort(names.begin(), names.end());
    QStringList expected = names;
    std::sort(expected.begin(), expected.end(), isPortBefore);
    do {
        QStringList sorted = names;
        std::sort(sorted.begin(), sorted.end(), isPortBefore);
        QCOMPARE(sorted, expected);
    } while (std::next_permutation(names.begin(), names.end()));
}

QTEST_GUILESS_MAIN(TestPortName)
#include "tst_tools_portname.moc"
