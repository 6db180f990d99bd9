#include "support/programs/jwsimrun.h"

#include <QStandardPaths>
#include <QTemporaryFile>
#include <QTest>

#include <algorithm>

#include <unistd.h>

/// Tests how programs without Qt list the simulated ports.
class TestJwsimListings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void pyserialListsThePort();
    void pyserialTalksToTheBoard();
    void libserialportListsThePorts();
    void udevadmKnowsThePort_data();
    void udevadmKnowsThePort();
    void udevadmKnowsTheDeviceAboveThePort();
    void pulledPortIsNotListed();
    void udevadmReceivesTheEvents();

private:
    QStringList boards() const;

    // pyserial lists only ports with usual names, so the names begin with ttyACM. The numbers come from the process id,
    // so tests that run at the same time use different ports.
    const QString m_first = QStringLiteral("ttyACM%1").arg(::getpid() % 5000 * 2);
    const QString m_second = QStringLiteral("ttyACM%1").arg(::getpid() % 5000 * 2 + 1);
    const QString m_third = QStringLiteral("ttyUSB%1").arg(::getpid() % 5000 * 2);
};

namespace {

QStringList python(const char *script, const QStringList &arguments)
{
    // Debian's package installs pyserial (a Python library for serial ports) only for this python3.
    return QStringList{QStringLiteral("/usr/bin/python3"), QStringLiteral("-c"), QLatin1String(script)} + arguments;
}

QStringList udevadm(const QStringList &arguments)
{
    return QStringList{QStringLiteral("udevadm"), QStringLiteral("info")} + arguments;
}

} // namespace

void TestJwsimListings::initTestCase()
{
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("listserialportsc")).isEmpty(),
             "listserialportsc is missing; install the package listserialportsc");
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("udevadm")).isEmpty(),
             "udevadm is missing; install the package udev");
    const QStringList import = python("import serial.tools.list_ports", {});
    QVERIFY2(runProgram(import.first(), import.mid(1)).status == 0,
             "pyserial is missing; install the package python3-serial");
}

QStringList TestJwsimListings::boards() const
{
    return {boardOn("BoardA", m_first,
                    "manufacturer=Acme Boards & Co.,vendor=12ab,product=00fe,product-name=Wind and Water 2,"
                    "serial=S 0042/b"),
            boardOn("silent", m_second)};
}

void TestJwsimListings::pyserialListsThePort()
{
    const char *const script = "from serial.tools import list_ports\n"
                               "for port in sorted(list_ports.comports()):\n"
                               "    print(port.device, '%04x:%04x' % (port.vid, port.pid), port.serial_number,\n"
                               "          port.manufacturer, port.product, port.description, port.location, sep='|')\n";
    const Outcome outcome = runProgram(jwsimProgram(), simulated(boards(), python(script, {})));
    QCOMPARE(outcome.error, QByteArray());
    const QByteArray first = m_first.toLatin1();
    const QByteArray second = m_second.toLatin1();
    QCOMPARE(linesOf(outcome.output),
             (QList<QByteArray>{
                 "/dev/" + first + "|12ab:00fe|S 0042/b|Acme Boards & Co.|Wind and Water 2|Wind and Water 2|1-01",
                 "/dev/" + second + "|0483:5740|SIM2|STMicroelectronics.|Simulated board|Simulated board|1-02"}));

    // Also run the listing program of pyserial, as a user would.
    const Outcome listing = runProgram(jwsimProgram(),
                                       simulated(boards(),
                                                 {QStringLiteral("/usr/bin/python3"), QStringLiteral("-m"),
                                                  QStringLiteral("serial.tools.list_ports"), QStringLiteral("-v")}));
    QCOMPARE(listing.status, 0);
    QVERIFY2(listing.output.contains("    desc: Wind and Water 2\n"
                                     "    hwid: USB VID:PID=12AB:00FE SER=S 0042/b LOCATION=1-01\n"),
             listing.output.constData());
}

void TestJwsimListings::pyserialTalksToTheBoard()
{
    const char *const script = "import serial, sys\n"
                               "port = serial.Serial('/dev/' + sys.argv[1], 115200, timeout=60)\n"
                               "port.write(b'$PJWVER*0c\\r\\n')\n"
                               "print(port.readline())\n";
    const Outcome outcome = runProgram(jwsimProgram(), simulated(boards(), python(script, {m_first})));
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.output, QByteArray("b'$PJWVER,7300022,1,4,0*0d\\r\\n'\n"));
}

void TestJwsimListings::libserialportListsThePorts()
{
    const Outcome outcome =
        runProgram(jwsimProgram(), simulated(boards(), {QStringLiteral("listserialportsc"), QStringLiteral("-l")}));
    QCOMPARE(outcome.error, QByteArray());
    QList<QByteArray> lines = linesOf(outcome.output);
    std::sort(lines.begin(), lines.end());
    // Each line shows port, ids, serial number, product, manufacturer and description (product and serial number).
    const QByteArray first = m_first.toLatin1();
    const QByteArray second = m_second.toLatin1();
    QVERIFY2(lines.contains("/dev/" + first
                            + " | 12AB:00FE | S 0042/b Wind and Water 2 Acme Boards & Co. Wind and Water 2 - S 0042/b"),
             outcome.output.constData());
    QVERIFY2(lines.contains("/dev/" + second
                            + " | 0483:5740 | SIM2 Simulated board STMicroelectronics. Simulated board - SIM2"),
             outcome.output.constData());
}

void TestJwsimListings::udevadmKnowsThePort_data()
{
    QTest::addColumn<QStringList>("device");
    QTest::newRow("by name") << QStringList{QStringLiteral("--name"), QStringLiteral("/dev/") + m_first};
    QTest::newRow("by path") << QStringList{QStringLiteral("--path"), QStringLiteral("/sys/class/tty/") + m_first};
}

void TestJwsimListings::udevadmKnowsThePort()
{
    QFETCH(QStringList, device);

    const Outcome outcome = runProgram(
        jwsimProgram(), simulated(boards(), udevadm(QStringList(QStringLiteral("--query=property")) + device)));
    QCOMPARE(outcome.error, QByteArray());
    const QList<QByteArray> lines = linesOf(outcome.output);
    for (const QByteArray &line :
         {QByteArray("DEVNAME=/dev/" + m_first.toLatin1()), QByteArray("SUBSYSTEM=tty"),
          QByteArray("ID_VENDOR_ID=12ab"), QByteArray("ID_MODEL_ID=00fe"),
          // udev replaces blanks with underscores. In the values of _ENC keys, udev encodes the blanks instead.
          QByteArray("ID_VENDOR=Acme_Boards_&_Co."), QByteArray("ID_VENDOR_ENC=Acme\\x20Boards\\x20\\x26\\x20Co."),
          QByteArray("ID_MODEL=Wind_and_Water_2"), QByteArray("ID_MODEL_ENC=Wind\\x20and\\x20Water\\x202"),
          QByteArray("ID_SERIAL_SHORT=S 0042/b"), QByteArray("ID_USB_DRIVER=cdc_acm")})
        QVERIFY2(lines.contains(line), (line + " is not in\n" + outcome.output).constData());
}

void TestJwsimListings::udevadmKnowsTheDeviceAboveThePort()
{
    const Outcome outcome = runProgram(
        jwsimProgram(),
        simulated(boards(), udevadm({QStringLiteral("--attribute-walk"), QStringLiteral("--name=/dev/") + m_first})));
    QCOMPARE(outcome.error, QByteArray());
    for (const char *line : {"DRIVERS==\"cdc_acm\"", "ATTRS{idVendor}==\"12ab\"", "ATTRS{idProduct}==\"00fe\"",
                             "ATTRS{manufacturer}==\"Acme Boards & Co.\"", "ATTRS{product}==\"Wind and Water 2\"",
                             "ATTRS{serial}==\"S 0042/b\"", "DRIVERS==\"usb\""})
        QVERIFY2(outcome.output.contains(line), (QByteArray(line) + " is not in\n" + outcome.output).constData());
}

void TestJwsimListings::pulledPortIsNotListed()
{
    const QString script = QStringLiteral("while test -e /sys/bus/usb/devices/1-01; do :; done; "
                                          "listserialportsc -l; ls -m /sys/dev/char; ls -m /sys/bus/usb/devices");
    const Outcome outcome =
        runProgram(jwsimProgram(),
                   simulated({boardOn("BoardA", m_first, "pull-after=100"), boardOn("silent", m_second)},
                             {QStringLiteral("sh"), QStringLiteral("-c"), script}));
    QCOMPARE(outcome.error, QByteArray());
    QVERIFY2(outcome.output.contains(m_second.toLatin1()), outcome.output.constData());
    QVERIFY2(!outcome.output.contains(m_first.toLatin1()), outcome.output.constData());
    QVERIFY2(outcome.output.endsWith("\n166:1\n1-02, 1-02:1.0\n"), outcome.output.constData());
}

void TestJwsimListings::udevadmReceivesTheEvents()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    // The query makes the board send bytes, which pulls the cable. So the cable is pulled only when udevadm is ready.
    const QString script =
        QStringLiteral("udevadm monitor --udev --subsystem-match=tty >%1 & until grep -q ^UDEV %1; do :; done; "
                       "printf '$PJWVER*0c\\r\\n' >/dev/%2; until grep -q add %1; do :; done; kill $!; "
                       "cut -d ']' -f 2 %1 | awk '/devices/ { print $1, $2 }'")
            .arg(file.fileName(), m_first);
    const QString board = boardOn("BoardA", m_first, "pull-after-bytes=1,replug-after=10,replug-port=") + m_third;
    const Outcome outcome =
        runProgram(jwsimProgram(), simulated({board}, {QStringLiteral("sh"), QStringLiteral("-c"), script}));
    QCOMPARE(outcome.error, QByteArray());
    const QByteArray folder = "/devices/usb1/1-01/1-01:1.0/tty/";
    QCOMPARE(linesOf(outcome.output),
             (QList<QByteArray>{"remove " + folder + m_first.toLatin1(), "add " + folder + m_third.toLatin1()}));
}

QTEST_GUILESS_MAIN(TestJwsimListings)
#include "tst_jwsim_listings.moc"
