#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"
#include "support/common/systemports.h"

#include <simulator/board.h>
#include <simulator/boardconfig.h>
#include <simulator/port.h>
#include <simulator/testbed.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QSignalSpy>
#include <QSocketNotifier>

#include <libudev.h>
#include <unistd.h>
#include <utility>

using JwSimulator::Board;
using JwSimulator::BoardConfig;
using JwSimulator::Testbed;

namespace {

constexpr int patience = 30000; // ms; long enough for a build with a sanitizer on a busy machine

const QByteArray versionQuery = "$PJWVER*0c\r\n";
const QByteArray versionReply = "$PJWVER,7300022,1,4,0*0d\r\n";

#define WAIT_FOR(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, patience)

/// One event, with the device's data from the moment in which the monitor received the event.
struct Event
{
    explicit Event(udev_device *device)
        : action(udev_device_get_action(device))
        , name(udev_device_get_sysname(device))
        , node(udev_device_get_devnode(device))
        , type(udev_device_get_devtype(device) ? udev_device_get_devtype(device) : udev_device_get_subsystem(device))
        , serial(udev_device_get_property_value(device, "ID_SERIAL_SHORT"))
        , longSerial(udev_device_get_property_value(device, "ID_SERIAL"))
        , vendor(udev_device_get_property_value(device, "ID_VENDOR_ID"))
        , isNodeUsable(::access(node, R_OK | W_OK) == 0)
    {
        // A device that is gone again by now has no parents.
        if (udev_device *usb = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_interface"))
            place = udev_device_get_sysname(usb);
        if (udev_device *usb = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_device"))
            serialAttribute = udev_device_get_sysattr_value(usb, "serial");
    }

    QByteArray action;
    QByteArray name;
    QByteArray node;
    QByteArray type; // "usb_device", "usb_interface" or "tty"
    QByteArray serial;
    QByteArray longSerial;
    QByteArray vendor;
    QByteArray serialAttribute;
    bool isNodeUsable;
    QByteArray place;
};

/// Receives the system's events as any program does, through libudev.
class Monitor
{
public:
    /// If `subsystem` is given, the monitor receives only the events of devices of this subsystem. If `type` is given
    /// too, the devices must also be of this type.
    explicit Monitor(const char *subsystem = nullptr, const char *type = nullptr)
        : m_udev(udev_new())
        , m_monitor(udev_monitor_new_from_netlink(m_udev, "udev"))
    {
        if (subsystem)
            udev_monitor_filter_add_match_subsystem_devtype(m_monitor, subsystem, type);
        udev_monitor_enable_receiving(m_monitor);
        m_notifier = std::make_unique<QSocketNotifier>(udev_monitor_get_fd(m_monitor), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] {
            while (udev_device *device = udev_monitor_receive_device(m_monitor)) {
                m_events.append(Event(device));
                udev_device_unref(device);
            }
        });
    }
    ~Monitor()
    {
        m_notifier.reset();
        udev_monitor_unref(m_monitor);
        udev_unref(m_udev);
    }
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    const QList<Event> &events() const { return m_events; }
    QList<Event> ttyEvents() const
    {
        QList<Event> events;
        for (const Event &event : m_events) {
            if (event.type == "tty")
                events.append(event);
        }
        return events;
    }
    /// Returns the action and the name of each event of a tty, for example "add ttyACM0".
    QByteArrayList ttyTexts() const
    {
        QByteArrayList texts;
        for (const Event &event : ttyEvents())
            texts.append(event.action + ' ' + event.name);
        return texts;
    }

private:
    udev *const m_udev;
    udev_monitor *const m_monitor;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QList<Event> m_events;
};

// Opens the board's port, sends the query, and returns whether the reply arrives.
bool answers(const Board *board)
{
    QSerialPort port(board->portName());
    if (!port.open(QIODevice::ReadWrite))
        return false;
    port.write(versionQuery);
    return QTest::qWaitFor([&] { return port.bytesAvailable() >= versionReply.size(); }, patience)
        && port.readAll() == versionReply;
}

// Returns the number that the system gave to the USB device with this name. 0 if there is no such device.
int usbNumber(const char *name)
{
    QFile file(QStringLiteral("/sys/bus/usb/devices/%1/devnum").arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll().toInt() : 0;
}

auto openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

/// Tests what the system reports when the cable of a simulated board is plugged in and pulled, as the configuration of
/// the board says.
class TestSimulatorCable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_testbed = std::make_unique<Testbed>(); }
    void cleanup() { m_testbed.reset(); }

    void plugAndPullReportEachDeviceOnce();
    void monitorsHaveFilters();
    void boardIsPluggedInLater();
    void nameOfALaterBoardIsReserved();
    void plugByHandEndsTheWait();
    void pullCountsFromThePlug();
    void replugCountsFromThePull();
    void portComesBackUnderAnotherName();
    void boardPulledAfterBytesComesBack();
    void cyclesLeaveNothingBehind();
    void deviceWithoutASerialNumber();
    void deniedPortIsPulled();
    void hubBoardsComeAndGoTogether();
    void hubIsPluggedByHand();
    void boardBehindAHubIsPulledAlone();
    void onlyTheFirstBoardMovesTheHub();
    void hubHasRoomForAllBoards();
    void permissionComesLate();
    void permissionComesLateAfterEachPlug();

private:
    Board *add(const QString &text)
    {
        QString error;
        auto config = BoardConfig::fromText(text, &error);
        if (config) {
            config->port = uniquePortName();
            if (Board *board = m_testbed->add(*config, &error))
                return board;
        }
        qFatal("%s", qUtf8Printable(error));
    }
    Board *add(const char *text) { return add(QString::fromLatin1(text)); }

    std::unique_ptr<Testbed> m_testbed;
};

void TestSimulatorCable::plugAndPullReportEachDeviceOnce()
{
    const Monitor monitor;
    Board *board = add("BoardA,serial=X7,vendor=12ab");
    WAIT_FOR(monitor.events().size() >= 3);
    const QByteArray port = board->portName().toLatin1();
    const QByteArray types[] = {"usb_device", "usb_interface", "tty"};
    const QByteArray names[] = {"1-01", "1-01:1.0", port};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(monitor.events().at(i).action, QByteArray("add"));
        QCOMPARE(monitor.events().at(i).type, types[i]);
        QCOMPARE(monitor.events().at(i).name, names[i]);
    }
    const Event tty = monitor.events().at(2);
    QCOMPARE(tty.node, "/dev/" + port);
    QVERIFY(tty.isNodeUsable);
    QCOMPARE(tty.serial, QByteArray("X7"));
    QCOMPARE(tty.serialAttribute, QByteArray("X7"));
    QCOMPARE(tty.vendor, QByteArray("12ab"));
    QCOMPARE(tty.place, QByteArray("1-01:1.0"));

    board->pull();
    WAIT_FOR(monitor.events().size() >= 6);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(monitor.events().at(3 + i).action, QByteArray("remove"));
        QCOMPARE(monitor.events().at(3 + i).type, types[2 - i]);
        QCOMPARE(monitor.events().at(3 + i).name, names[2 - i]);
    }
    QVERIFY(board->plug());
    WAIT_FOR(monitor.events().size() >= 9);
    QCOMPARE(monitor.events().size(), 9);
}

void TestSimulatorCable::monitorsHaveFilters()
{
    const Monitor all;
    const Monitor ports("tty");
    const Monitor interfaces("usb", "usb_interface");
    Board *board = add("BoardA");
    board->pull();
    WAIT_FOR(all.events().size() == 6 && ports.events().size() >= 2 && interfaces.events().size() >= 2);
    QCOMPARE(ports.events().size(), 2);
    QCOMPARE(interfaces.events().size(), 2);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(ports.events().at(i).type, QByteArray("tty"));
        QCOMPARE(interfaces.events().at(i).name, QByteArray("1-01:1.0"));
    }
}

void TestSimulatorCable::boardIsPluggedInLater()
{
    const Monitor monitor;
    Board *board = add("BoardA,plug-after=20");
    QSignalSpy plugged(board, &Board::plugged);
    QVERIFY(!board->isPlugged());
    QVERIFY(!board->send("x"));
    QCOMPARE(systemPorts(), QStringList());
    WAIT_FOR(monitor.ttyEvents().size() == 1);
    QVERIFY(board->isPlugged());
    QCOMPARE(plugged.size(), 1);
    QCOMPARE(systemPorts(), QStringList(board->portName()));
    QVERIFY(answers(board));
}

void TestSimulatorCable::nameOfALaterBoardIsReserved()
{
    QString error;
    BoardConfig config;
    config.plugAfter = 1000000;
    config.pullAfter = 0;
    config.replugAfter = 0;
    config.replugPort = uniquePortName();
    const Board *later = m_testbed->add(config, &error);
    QVERIFY2(later, qPrintable(error));
    const QStringList names{later->portName(), config.replugPort};
    for (const QString &name : names) {
        BoardConfig taken;
        taken.port = name;
        QVERIFY(!m_testbed->add(taken, &error));
        QVERIFY2(error.contains(name), qPrintable(error));
        taken.port = uniquePortName();
        taken.replugPort = name;
        QVERIFY(!m_testbed->add(taken, &error));
        QVERIFY2(!JwSimulator::reserveName(name), "another simulation could use the name");
    }
    const Board *other = m_testbed->add(BoardConfig(), &error);
    QVERIFY2(other, qPrintable(error));
    QVERIFY(!names.contains(other->portName()));

    BoardConfig same;
    same.port = uniquePortName();
    same.replugPort = same.port;
    QVERIFY(!m_testbed->add(same, &error));
    QVERIFY2(error.contains(same.port), qPrintable(error));
}

void TestSimulatorCable::plugByHandEndsTheWait()
{
    Board *board = add("BoardA,plug-after=20");
    const Board *later = add("BoardA,plug-after=60");
    QCoreApplication::processEvents();
    QString error;
    QVERIFY2(board->plug(&error), qPrintable(error));
    board->pull();
    WAIT_FOR(later->isPlugged());
    QVERIFY(!board->isPlugged());
}

void TestSimulatorCable::pullCountsFromThePlug()
{
    const Monitor monitor;
    Board *board = add("BoardA,plug-after=60,pull-after=40");
    qint64 pluggedAt = -1;
    QElapsedTimer clock;
    clock.start();
    connect(board, &Board::plugged, this, [&] { pluggedAt = clock.elapsed(); });
    qint64 pulledAt = -1;
    connect(board, &Board::pulled, this, [&] { pulledAt = clock.elapsed(); });
    WAIT_FOR(pulledAt >= 0);
    QVERIFY2(pluggedAt >= 59, qPrintable(QString::number(pluggedAt)));
    QVERIFY2(pulledAt - pluggedAt >= 39, qPrintable(QString::number(pulledAt - pluggedAt)));
    const QByteArray port = board->portName().toLatin1();
    WAIT_FOR(monitor.ttyEvents().size() == 2);
    QCOMPARE(monitor.ttyTexts(), (QByteArrayList{"add " + port, "remove " + port}));
}

void TestSimulatorCable::replugCountsFromThePull()
{
    Board *board = add("BoardA,pull-after=10,replug-after=40");
    m_testbed->restartClock(); // pullTime() counts from here
    QElapsedTimer clock;
    clock.start();
    qint64 wait = -1;
    connect(board, &Board::plugged, this, [&] { wait = clock.elapsed() - board->pullTime(); });
    WAIT_FOR(wait >= 0);
    QVERIFY2(wait >= 39, qPrintable(QString::number(wait)));
    QVERIFY(answers(board));
    // The cable of `board` now stays in: it is still there when the cable of another board is pulled after 60 ms.
    Board *other = add("BoardA,pull-after=60");
    WAIT_FOR(!other->isPlugged());
    QVERIFY(board->isPlugged());
}

void TestSimulatorCable::portComesBackUnderAnotherName()
{
    const Monitor monitor;
    const QString second = uniquePortName();
    Board *board =
        add(QStringLiteral("BoardA,plug-after=5,pull-after=5,replug-after=5,cycles=3,replug-port=%1").arg(second));
    QList<int> numbers;
    connect(board, &Board::plugged, this, [&] { numbers.append(usbNumber("1-01")); });
    const QByteArray one = board->config().port.toLatin1();
    const QByteArray two = second.toLatin1();
    WAIT_FOR(monitor.ttyEvents().size() == 7);
    QCOMPARE(monitor.ttyTexts(),
             (QByteArrayList{"add " + one, "remove " + one, "add " + two, "remove " + two, "add " + one,
                             "remove " + one, "add " + two}));
    QCOMPARE(board->portName(), second);
    QCOMPARE(systemPorts(), QStringList(second));
    QVERIFY(answers(board));
    QCOMPARE(numbers, (QList<int>{2, 3, 4, 5})); // each plug at the same place gets a new device number
    board->pull();
    QCOMPARE(systemPorts(), QStringList());
    QVERIFY(board->plug());
    QCOMPARE(systemPorts(), QStringList(second));
}

void TestSimulatorCable::boardPulledAfterBytesComesBack()
{
    Board *board = add("BoardA,pull-after-bytes=10,replug-after=0,cycles=2");
    QSignalSpy plugged(board, &Board::plugged);
    for (int round = 1; round <= 2; ++round) {
        QSerialPort port(board->portName());
        QVERIFY(port.open(QIODevice::ReadWrite));
        QByteArray received;
        connect(&port, &QSerialPort::readyRead, &port, [&] { received += port.readAll(); });
        connect(&port, &QSerialPort::errorOccurred, &port, &QSerialPort::close);
        port.write(versionQuery);
        WAIT_FOR(plugged.size() == round);
        QCOMPARE(received, versionReply.left(10));
    }
    QVERIFY(answers(board));
}

void TestSimulatorCable::cyclesLeaveNothingBehind()
{
    const int cycles = 140; // a USB bus has fewer device numbers: 127
    const Monitor monitor;
    const Board *neighbour = add("BoardA");
    Board *board = add(QStringLiteral("BoardA,pull-after=0,replug-after=0,cycles=%1").arg(cycles));
    const int neighbourNumber = usbNumber("1-01");
    QList<int> numbers;
    QVector<QStringList::size_type> descriptors;
    connect(board, &Board::plugged, this, [&] {
        numbers.append(usbNumber("1-02"));
        descriptors.append(openDescriptors());
    });
    WAIT_FOR(numbers.size() == cycles);
    QCOMPARE(descriptors, QVector<QStringList::size_type>(cycles, descriptors.first()));
    WAIT_FOR(monitor.ttyEvents().size() == 2 + 2 * cycles);
    QCOMPARE(systemPorts(), QStringList() << neighbour->portName() << board->portName());
    QVERIFY(answers(board));
    QVERIFY(answers(neighbour));
    for (int i = 0; i < cycles; ++i) {
        QVERIFY2(numbers.at(i) > 1 && numbers.at(i) <= 127, qPrintable(QString::number(numbers.at(i))));
        QVERIFY(numbers.at(i) != neighbourNumber);
        QCOMPARE(numbers.indexOf(numbers.at(i)),
                 i % 125); // the bus and the neighbour have 2 of 127 numbers; the others are used in turn
    }
}

void TestSimulatorCable::deviceWithoutASerialNumber()
{
    const Monitor monitor;
    const Board *board = add("BoardA,serial=,manufacturer=Acme,product-name=Lamp");
    const QSerialPortInfo info(board->portName());
    QVERIFY(!info.isNull());
    QVERIFY(info.serialNumber().isEmpty());
    QCOMPARE(info.manufacturer(), QStringLiteral("Acme"));
    WAIT_FOR(monitor.ttyEvents().size() == 1);
    const Event tty = monitor.ttyEvents().first();
    QVERIFY(tty.serial.isNull());
    QVERIFY(tty.serialAttribute.isNull());
    QCOMPARE(tty.longSerial, QByteArray("Acme_Lamp"));
    QVERIFY(answers(board));
    // If the configuration gives no serial number, the simulator chooses one.
    QVERIFY(!QSerialPortInfo(add("BoardA")->portName()).serialNumber().isEmpty());
}

void TestSimulatorCable::deniedPortIsPulled()
{
    const Board *board = add("BoardA,open=denied,pull-after=10");
    WAIT_FOR(!board->isPlugged());
    QCOMPARE(systemPorts(), QStringList());
}

void TestSimulatorCable::hubBoardsComeAndGoTogether()
{
    const Monitor monitor;
    const QString other = uniquePortName();
    QList<Board *> boards{add("BoardA,hub=desk,plug-after=10,pull-after-bytes=1,replug-after=10")};
    boards.append(add(QStringLiteral("BoardA,hub=desk,replug-port=%1").arg(other)));
    boards.append(add("BoardA,hub=desk"));
    add("BoardA"); // no hub; its cable stays in
    QStringList names;
    for (const Board *board : std::as_const(boards)) {
        QVERIFY(!board->isPlugged());
        names.append(board->portName());
    }
    QList<QStringList::size_type> left; // number of the hub's boards that are left when the last board emits pulled()
    connect(boards.last(), &Board::pulled, this, [&] { left.append(systemPorts().size() - 1); });

    WAIT_FOR(monitor.ttyEvents().size() == 4);
    QCOMPARE(monitor.events().at(3).name, QByteArray("1-01")); // the first three are of the board without a hub
    QCOMPARE(monitor.events().at(4).name, QByteArray("1-01:1.0"));
    QCOMPARE(systemPorts().size(), 4);
    for (int i = 0; i < 3; ++i) {
        const Event tty = monitor.ttyEvents().at(1 + i);
        QCOMPARE(tty.name, names.at(i).toLatin1());
        QCOMPARE(tty.place, QByteArray("1-01.0%1:1.0").replace("%1", QByteArray::number(i + 1)));
    }
    QVERIFY(answers(boards.at(1)) && answers(boards.at(2)));
    // The first board's reply pulls the hub.
    QSerialPort port(names.first());
    QVERIFY(port.open(QIODevice::ReadWrite));
    connect(&port, &QSerialPort::errorOccurred, &port, &QSerialPort::close);
    port.write(versionQuery);
    WAIT_FOR(monitor.ttyEvents().size() == 10);
    QCOMPARE(left, QList<QStringList::size_type>{0});
    const QByteArray removed = "remove ";
    QCOMPARE(monitor.ttyTexts().mid(4, 3),
             (QByteArrayList{removed + names.at(0).toLatin1(), removed + names.at(1).toLatin1(),
                             removed + names.at(2).toLatin1()}));
    names[1] = other;
    const QByteArray added = "add ";
    QCOMPARE(monitor.ttyTexts().mid(7),
             (QByteArrayList{added + names.at(0).toLatin1(), added + names.at(1).toLatin1(),
                             added + names.at(2).toLatin1()}));
    QVERIFY(answers(boards.at(1)) && answers(boards.at(2)));
    QByteArrayList ofTheHub;
    for (const Event &event : monitor.events()) {
        if (event.name == "1-01")
            ofTheHub.append(event.action);
    }
    QCOMPARE(ofTheHub, (QByteArrayList{"add", "remove", "add"}));
    const auto last = monitor.events().size() - 1;
    QCOMPARE(monitor.events().at(last).name, names.at(2).toLatin1());
}

void TestSimulatorCable::hubIsPluggedByHand()
{
    const Board *first = add("BoardA,hub=desk");
    const Board *second = add("BoardA,hub=desk");
    QCOMPARE(systemPorts().size(), 2);
    QString error;
    QVERIFY(!m_testbed->plugHub(QStringLiteral("desk"), &error));
    QVERIFY2(error.contains(QLatin1String("desk")) && error.contains(QLatin1String("already")), qPrintable(error));
    QVERIFY(!m_testbed->pullHub(QStringLiteral("shelf")));
    QVERIFY(!m_testbed->plugHub(QStringLiteral("shelf"), &error));
    QVERIFY2(error.contains(QLatin1String("shelf")), qPrintable(error));

    QVERIFY(m_testbed->pullHub(QStringLiteral("desk")));
    QCOMPARE(systemPorts(), QStringList());
    QVERIFY(!first->isPlugged() && !second->isPlugged());
    const Board *third = add("BoardA,hub=desk"); // waits for its hub
    QVERIFY(!third->isPlugged());
    QVERIFY2(m_testbed->plugHub(QStringLiteral("desk"), &error), qPrintable(error));
    QCOMPARE(systemPorts(), (QStringList{first->portName(), second->portName(), third->portName()}));
    QVERIFY(answers(first) && answers(second) && answers(third));
}

void TestSimulatorCable::boardBehindAHubIsPulledAlone()
{
    Board *first = add("BoardA,hub=desk");
    const Board *second = add("BoardA,hub=desk");
    first->pull();
    QCOMPARE(systemPorts(), QStringList(second->portName()));
    QVERIFY(first->plug());
    QVERIFY(answers(first) && answers(second));
    QVERIFY(m_testbed->pullHub(QStringLiteral("desk")));
    QString error;
    QVERIFY(!first->plug(&error));
    QVERIFY2(error.contains(QLatin1String("desk")), qPrintable(error));
}

void TestSimulatorCable::onlyTheFirstBoardMovesTheHub()
{
    add("BoardA,hub=desk,pull-after=1000000");
    for (const char *text : {"BoardA,hub=desk,plug-after=1", "BoardA,hub=desk,pull-after=1",
                             "BoardA,hub=desk,pull-after-bytes=1", "BoardA,hub=desk,pull-after=1,replug-after=1"}) {
        QString error;
        const auto config = BoardConfig::fromText(QLatin1String(text), &error);
        QVERIFY2(config, qPrintable(error));
        QVERIFY2(!m_testbed->add(*config, &error), text);
        QVERIFY2(error.contains(QLatin1String("first board of hub desk")), qPrintable(error));
        const auto shelf =
            BoardConfig::fromText(QString::fromLatin1(text).replace(QLatin1String("desk"), QLatin1String("shelf")));
        QVERIFY(!m_testbed->add(QList<BoardConfig>{*shelf, *shelf}, &error));
        QVERIFY2(error.contains(QLatin1String("first board of hub shelf")), qPrintable(error));
    }
    QCOMPARE(m_testbed->boards().size(), 1);
}

void TestSimulatorCable::hubHasRoomForAllBoards()
{
    for (int i = 0; i < Testbed::maxBoards; ++i)
        add("BoardA,hub=desk");
    QVERIFY(m_testbed->pullHub(QStringLiteral("desk")));
    QCOMPARE(systemPorts(), QStringList());
    const Monitor monitor; // the events of all boards wait until the event loop runs, after plugHub()
    QVERIFY(m_testbed->plugHub(QStringLiteral("desk")));
    QCOMPARE(systemPorts().size(), Testbed::maxBoards);
    WAIT_FOR(monitor.events().size() == 2 + 3 * Testbed::maxBoards);
    for (int i = 0; i < Testbed::maxBoards; ++i)
        QCOMPARE(monitor.ttyEvents().at(i).name, m_testbed->boards().at(i)->portName().toLatin1());
    QVERIFY(answers(m_testbed->boards().last()));
}

void TestSimulatorCable::permissionComesLate()
{
    const Monitor monitor;
    const Board *board = add("BoardA,late-permission=40");
    QElapsedTimer clock;
    clock.start();
    const QByteArray port = board->portName().toLatin1();
    QCOMPARE(systemPorts(), QStringList(board->portName()));
    QSerialPort early(board->portName());
    QVERIFY(!early.open(QIODevice::ReadWrite));
    QCOMPARE(early.error(), QSerialPort::PermissionError);

    WAIT_FOR(monitor.ttyEvents().size() == 2);
    QVERIFY2(clock.elapsed() >= 39, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(monitor.ttyTexts(), (QByteArrayList{"add " + port, "change " + port}));
    QVERIFY(monitor.ttyEvents().at(1).isNodeUsable);
    QCOMPARE(monitor.ttyEvents().at(1).node, "/dev/" + port);
    QCOMPARE(monitor.ttyEvents().at(1).place, QByteArray("1-01:1.0"));
    QVERIFY(answers(board));
}

void TestSimulatorCable::permissionComesLateAfterEachPlug()
{
    const Monitor monitor;
    // The first pull comes before the permission of the first plug, so this permission never comes.
    Board *board = add("BoardA,pull-after=20,replug-after=5,late-permission=40");
    QElapsedTimer clock;
    connect(board, &Board::plugged, this, [&] { clock.start(); });
    const QByteArray port = board->portName().toLatin1();
    WAIT_FOR(monitor.ttyEvents().size() == 4);
    QVERIFY2(clock.elapsed() >= 39, qPrintable(QString::number(clock.elapsed())));
    const QByteArrayList once{"remove " + port, "add " + port, "change " + port};
    QCOMPARE(monitor.ttyTexts(), QByteArrayList{"add " + port} + once);
    QVERIFY(answers(board));

    board->pull();
    QVERIFY(board->plug());
    QVERIFY(!QSerialPort(board->portName()).open(QIODevice::ReadWrite));
    WAIT_FOR(monitor.ttyEvents().size() == 7);
    QCOMPARE(monitor.ttyTexts(), QByteArrayList{"add " + port} + once + once);
    QVERIFY(answers(board));
}

SIMULATED_PORTS_MAIN(TestSimulatorCable)
#include "tst_simulator_cable.moc"
