#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"
#include "support/common/systemports.h"

#include <simulator/board.h>
#include <simulator/boardconfig.h>
#include <simulator/pacer.h>
#include <simulator/port.h>
#include <simulator/scenario.h>
#include <simulator/testbed.h>
#include <simulator/wire.h>

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QScopeGuard>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QSet>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QTemporaryFile>
#include <QTimer>
#include <QVariantMap>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using JwSimulator::Board;
using JwSimulator::BoardConfig;
using JwSimulator::JournalEntry;
using JwSimulator::Testbed;

Q_DECLARE_METATYPE(BoardConfig::Kind)
Q_DECLARE_METATYPE(BoardConfig::Usb)

namespace {

constexpr int patience = 30000; // ms; long enough for a build with a sanitizer on a busy machine

const QByteArray versionQuery = "$PJWVER*0c\r\n";
const QByteArray informationRequest = "$PTJWWR,INF*71\r\n";
const QByteArray versionReply = "$PJWVER,7300022,1,4,0*0d\r\n";

/// The host's end of a simulated port (the end that programs open), opened without Qt.
class HostPort
{
public:
    explicit HostPort(const Board *board)
        : m_descriptor(::open(("/dev/" + board->portName().toLatin1()).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
    }
    ~HostPort()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    HostPort(const HostPort &) = delete;
    HostPort &operator=(const HostPort &) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    bool write(const QByteArray &bytes) const
    {
        return ::write(m_descriptor, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size();
    }
    int descriptor() const { return m_descriptor; }
    /// Calls read() once and returns its bytes.
    QByteArray read() const
    {
        char bytes[4096];
        const ssize_t count = ::read(m_descriptor, bytes, sizeof bytes);
        return {bytes, static_cast<int>(qMax<ssize_t>(0, count))};
    }
    /// Reads all available bytes, and returns all bytes received so far.
    const QByteArray &received()
    {
        for (QByteArray bytes = read(); !bytes.isEmpty(); bytes = read())
            m_received += bytes;
        return m_received;
    }

private:
    const int m_descriptor;
    QByteArray m_received;
};

/// A host that reads as soon as bytes arrive.
class PromptHost
{
public:
    explicit PromptHost(const Board *board)
        : m_port(board)
        , m_readable(m_port.descriptor(), QSocketNotifier::Read)
    {
        QObject::connect(&m_readable, &QSocketNotifier::activated, [this] { m_pieces.append(m_port.read()); });
    }

    bool write(const QByteArray &bytes) const { return m_port.write(bytes); }
    /// Returns the bytes that each call of read() returned, one entry for each call.
    const QList<QByteArray> &pieces() const { return m_pieces; }
    QByteArray received() const { return m_pieces.join(); }

private:
    const HostPort m_port;
    QSocketNotifier m_readable;
    QByteArrayList m_pieces;
};

#define WAIT_FOR(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, patience)

QVariantMap fieldsOf(const BoardConfig &config)
{
    return {{QStringLiteral("kind"), BoardConfig::kindName(config.kind)},
            {QStringLiteral("delay"), config.delay},
            {QStringLiteral("speed"), config.speed},
            {QStringLiteral("usb"), static_cast<int>(config.usb)},
            {QStringLiteral("chunk"), config.chunk},
            {QStringLiteral("gap"), config.gap},
            {QStringLiteral("noise"), config.noise},
            {QStringLiteral("checksum"), config.checksum == BoardConfig::Checksum::Wrong},
            {QStringLiteral("hwversion"), config.hwversion},
            {QStringLiteral("ignore"), config.ignore},
            {QStringLiteral("replies"), config.replies},
            {QStringLiteral("plug-after"), config.plugAfter},
            {QStringLiteral("pull-after"), config.pullAfter},
            {QStringLiteral("pull-after-bytes"), config.pullAfterBytes},
            {QStringLiteral("replug-after"), config.replugAfter},
            {QStringLiteral("replug-port"), config.replugPort},
            {QStringLiteral("cycles"), config.cycles},
            {QStringLiteral("late-permission"), config.latePermission},
            {QStringLiteral("open"), static_cast<int>(config.open)},
            {QStringLiteral("manufacturer"), config.manufacturer},
            {QStringLiteral("vendor"), config.vendor},
            {QStringLiteral("product"), config.product},
            {QStringLiteral("product-name"), config.productName},
            {QStringLiteral("serial"), config.serial},
            {QStringLiteral("port"), config.port},
            {QStringLiteral("hub"), config.hub},
            {QStringLiteral("interval"), config.interval},
            {QStringLiteral("seed"), config.seed}};
}

// Returns the name of the lock file that serial programs use for the port on this machine.
QString lockFile(const QString &port)
{
    const bool isRoom = ::access("/var/lock", R_OK | W_OK) == 0;
    return QStringLiteral("%1/LCK..%2").arg(QLatin1String(isRoom ? "/var/lock" : "/tmp"), port);
}

QByteArray journalBytes(const Board *board, JournalEntry::Direction direction)
{
    QByteArray bytes;
    const auto journal = board->journal();
    for (const JournalEntry &entry : journal) {
        if (entry.direction == direction)
            bytes += entry.bytes;
    }
    return bytes;
}

QList<qint64> journalTimes(const Board *board, JournalEntry::Direction direction)
{
    QList<qint64> times;
    const auto journal = board->journal();
    for (const JournalEntry &entry : journal) {
        if (entry.direction == direction)
            times.append(entry.milliseconds);
    }
    return times;
}

} // namespace

class TestSimulator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_testbed = std::make_unique<Testbed>(); }
    void cleanup() { m_testbed.reset(); }

    void keySetsOnlyItsField_data();
    void keySetsOnlyItsField();
    void bothFormsNameTheKinds_data();
    void bothFormsNameTheKinds();
    void wrongTextGivesOneLineOfError_data();
    void wrongTextGivesOneLineOfError();
    void helpNamesEveryKey();
    void scenarioIsReadInOrder();
    void errorNamesAnUnreadableScenario();

    void frameHasTheChecksum();
    void bodyOfASentence_data();
    void bodyOfASentence();

    void portsAreUsbDevices();
    void chosenNamesDifferFromGivenNames();
    void serialNumbersAreDistinct();
    void takenPortNameIsRefused();
    void nameThatAnotherProgramUsesIsLocked();
    void nameWithAFifoAsLockIsLocked();
    void longFileAsLockIsNotReadWhole();
    void fifoInPlaceOfAReservationStopsNothing_data();
    void fifoInPlaceOfAReservationStopsNothing();
    void moreThanMaxBoardsAreRefused();

    void boardAnswersItsOwnQuery_data();
    void boardAnswersItsOwnQuery();
    void otherQueriesGetNoAnswer_data();
    void otherQueriesGetNoAnswer();
    void queryInPiecesIsAnswered();
    void queryAfterGarbageIsAnswered();
    void queriesSentAtOnceAreAllAnswered();
    void replyIsDelayed();
    void slowLineDelaysBothDirections();
    void lineReleasesItsPieces_data();
    void lineReleasesItsPieces();
    void repliesBackToBackKeepTheLineSpeed_data();
    void repliesBackToBackKeepTheLineSpeed();
    void shortPacketsFillAFrame();
    void hostGetsBridgeFrames();
    void hostGetsPackets();
    void replyIsCutInChunks();
    void noiseIsNeverNul();
    void firstQueriesAreIgnored();
    void queryGetsSeveralReplies();
    void cableIsPulledAfterBytes();
    void cableIsPulledAfterTime();
    void busyPortDoesNotOpen();
    void deniedPortOpensForNobody();
    void seedRepeatsTheBytes();
    void otherSendsWithoutAQuery();
    void boardSendsAnyBytes();
    void boardKeepsBytesUntilTheHostReads();
    void babbleIsDroppedWhileTheHostDoesNotRead();
    void journalHasAllBytes();
    void journalKeepsTheNewest();
    void pulledCableRemovesThePort();
    void pluggedPortWorksAgain();
    void boardCanBePulledInItsOwnSignal_data();
    void boardCanBePulledInItsOwnSignal();

private:
    Board *add(const char *text)
    {
        QString error;
        auto config = BoardConfig::fromText(QLatin1String(text), &error);
        if (!config)
            qFatal("%s", qUtf8Printable(error));
        config->port = uniquePortName();
        Board *board = m_testbed->add(*config, &error);
        if (!board)
            qFatal("%s", qUtf8Printable(error));
        return board;
    }

    std::unique_ptr<Testbed> m_testbed;
};

void TestSimulator::keySetsOnlyItsField_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("others"); // the keys that this key needs

    const auto row = [](const char *key, const char *text, const QVariant &value, const QStringList &others = {}) {
        QTest::newRow(key) << QString::fromLatin1(key) << QString::fromLatin1(text) << value << others;
    };
    const QStringList pull{QStringLiteral("pull-after=5")};
    const QStringList replug = pull + QStringList{QStringLiteral("replug-after=5")};
    row("delay", "20", 20);
    row("speed", "115200", 115200);
    row("usb", "bridge", static_cast<int>(BoardConfig::Usb::Bridge));
    row("chunk", "7", 7);
    row("gap", "3", 3);
    row("noise", "50", 50);
    row("checksum", "wrong", true);
    row("hwversion", "V7300021-b", QStringLiteral("V7300021-b"));
    row("ignore", "2", 2);
    row("replies", "4", 4);
    row("plug-after", "0", 0);
    row("pull-after", "0", 0);
    row("pull-after-bytes", "12", 12);
    row("replug-after", "0", 0, pull);
    row("replug-port", "ttyUSB8", QStringLiteral("ttyUSB8"), replug);
    row("cycles", "9", 9, replug);
    row("late-permission", "30", 30);
    row("open", "denied", static_cast<int>(BoardConfig::Open::Denied));
    row("manufacturer", "Acme Boards", QStringLiteral("Acme Boards"));
    row("vendor", "1a2B", 0x1a2b);
    row("product", "0001", 1);
    row("product-name", "Wind & Water", QStringLiteral("Wind & Water"));
    row("serial", "X-1", QStringLiteral("X-1"));
    row("port", "ttyUSB7", QStringLiteral("ttyUSB7"));
    row("hub", "Desk2", QStringLiteral("Desk2"));
    row("interval", "5", 5);
    row("seed", "4294967295", 4294967295U);
}

void TestSimulator::keySetsOnlyItsField()
{
    QFETCH(QString, key);
    QFETCH(QString, text);
    QFETCH(QVariant, value);
    QFETCH(QStringList, others);

    const QString start = (QStringList{QStringLiteral("BoardA")} + others).join(QLatin1Char(','));
    const auto without = BoardConfig::fromText(start);
    QVERIFY(without);
    QVariantMap expected = fieldsOf(*without);
    QVERIFY(expected.contains(key));
    QVERIFY(expected[key] != value);
    expected[key] = value;

    const auto fromText = BoardConfig::fromText(QStringLiteral("%1,%2=%3").arg(start, key, text));
    QVERIFY(fromText);
    QCOMPARE(fieldsOf(*fromText), expected);

    QJsonObject object{{QStringLiteral("kind"), QStringLiteral("BoardA")}, {key, text}};
    for (const QString &other : others)
        object[other.section(QLatin1Char('='), 0, 0)] = other.section(QLatin1Char('='), 1);
    const auto fromJsonText = BoardConfig::fromJson(object);
    QVERIFY(fromJsonText);
    QCOMPARE(fieldsOf(*fromJsonText), expected);

    bool isNumber = false;
    object[key] = text.toDouble(&isNumber);
    if (isNumber && key != QLatin1String("product")) { // toDouble() reads decimals, but a product id is hexadecimal
        const auto fromJsonNumber = BoardConfig::fromJson(object);
        QVERIFY(fromJsonNumber);
        QCOMPARE(fieldsOf(*fromJsonNumber), expected);
    }
}

void TestSimulator::bothFormsNameTheKinds_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<BoardConfig::Kind>("kind");

    QTest::newRow("BoardA") << QStringLiteral("BoardA") << BoardConfig::Kind::BoardA;
    QTest::newRow("BoardB") << QStringLiteral("BoardB") << BoardConfig::Kind::BoardB;
    QTest::newRow("BoardC") << QStringLiteral("BoardC") << BoardConfig::Kind::BoardC;
    QTest::newRow("silent") << QStringLiteral("silent") << BoardConfig::Kind::Silent;
    QTest::newRow("babble") << QStringLiteral("babble") << BoardConfig::Kind::Babble;
    QTest::newRow("other") << QStringLiteral("other") << BoardConfig::Kind::Other;
}

void TestSimulator::bothFormsNameTheKinds()
{
    QFETCH(QString, name);
    QFETCH(BoardConfig::Kind, kind);

    const auto fromText = BoardConfig::fromText(name);
    QVERIFY(fromText && fromText->kind == kind);
    const auto fromJson = BoardConfig::fromJson({{QStringLiteral("kind"), name}});
    QVERIFY(fromJson && fromJson->kind == kind);
    QCOMPARE(BoardConfig::kindName(kind), name);
    QVERIFY(BoardConfig::help().contains(name));
}

void TestSimulator::wrongTextGivesOneLineOfError_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("says");

    QTest::newRow("empty") << QString() << QStringLiteral("BoardA, BoardB, BoardC");
    QTest::newRow("kind") << QStringLiteral("Toaster") << QStringLiteral("silent, babble, other");
    QTest::newRow("key") << QStringLiteral("BoardA,wait=3") << QStringLiteral("pull-after-bytes");
    QTest::newRow("value") << QStringLiteral("BoardA,delay=x") << QStringLiteral("milliseconds");
    QTest::newRow("line break") << QStringLiteral("BoardA,serial=a\nb") << QStringLiteral("printable ASCII");
    QTest::newRow("replug without a pull")
        << QStringLiteral("BoardA,replug-after=5") << QStringLiteral("add pull-after or pull-after-bytes");
    QTest::newRow("replug-port alone") << QStringLiteral("BoardA,pull-after=5,replug-port=ttyACM5")
                                       << QStringLiteral("replug-port needs replug-after");
    QTest::newRow("cycles alone") << QStringLiteral("BoardA,pull-after=5,cycles=2")
                                  << QStringLiteral("cycles needs replug-after");
    QTest::newRow("late permission of a denied port")
        << QStringLiteral("BoardA,open=denied,late-permission=5") << QStringLiteral("leave out late-permission");
    QTest::newRow("name of a hub") << QStringLiteral("BoardA,hub=a-b") << QStringLiteral("letters and digits");
    QTest::newRow("key twice, the second wrong") << QStringLiteral("BoardA,delay=1,delay=x") << QStringLiteral("delay");
}

void TestSimulator::wrongTextGivesOneLineOfError()
{
    QFETCH(QString, text);
    QFETCH(QString, says);

    QString error;
    QVERIFY(!BoardConfig::fromText(text, &error));
    QVERIFY2(error.contains(says), qPrintable(error));
    QVERIFY(!error.contains(QLatin1Char('\n')));
    QVERIFY(!BoardConfig::fromText(text));
}

void TestSimulator::helpNamesEveryKey()
{
    const QVariantMap fields = fieldsOf(BoardConfig());
    for (const QString &key : fields.keys()) {
        if (key != QLatin1String("kind"))
            QVERIFY2(BoardConfig::help().contains(QLatin1Char(' ') + key + QLatin1Char(' ')), qPrintable(key));
    }
}

void TestSimulator::scenarioIsReadInOrder()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write(
        R"({"boards": [{"kind": "BoardC", "delay": 20}, {"kind": "silent"}, {"kind": "BoardC", "delay": "30"}]})");
    file.close();
    QString error;
    const auto boards = JwSimulator::readScenario(file.fileName(), &error);
    QVERIFY2(boards, qPrintable(error));
    QCOMPARE(boards->size(), 3);
    QCOMPARE(boards->at(0).delay, 20);
    QVERIFY(boards->at(1).kind == BoardConfig::Kind::Silent);
    QCOMPARE(boards->at(2).delay, 30);
}

void TestSimulator::errorNamesAnUnreadableScenario()
{
    const QString name = QStringLiteral("/no/such/scenario.json");
    QString error;
    QVERIFY(!JwSimulator::readScenario(name, &error));
    QVERIFY2(error.contains(name), qPrintable(error));
}

void TestSimulator::frameHasTheChecksum()
{
    QCOMPARE(JwSimulator::frameSentence("PJWVER"), versionQuery);
    QCOMPARE(JwSimulator::frameSentence("PTJWWR,INF"), informationRequest);
    QCOMPARE(JwSimulator::frameSentence("PJWVER,7300021,1,4,0"), QByteArray("$PJWVER,7300021,1,4,0*0e\r\n"));
    const QByteArray wrong = JwSimulator::frameSentence("PJWVER", false);
    QCOMPARE(wrong.size(), versionQuery.size());
    QVERIFY(wrong.startsWith("$PJWVER*") && wrong.endsWith("\r\n") && wrong != versionQuery);
}

void TestSimulator::bodyOfASentence_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("whole") << versionQuery << QByteArray("PJWVER");
    QTest::newRow("without line end") << QByteArray("$PJWVER*0c") << QByteArray("PJWVER");
    QTest::newRow("checksum in capitals") << QByteArray("$PJWVER*0C\r\n") << QByteArray("PJWVER");
    QTest::newRow("wrong checksum") << QByteArray("$PJWVER*0d\r\n") << QByteArray();
    QTest::newRow("no checksum") << QByteArray("$PJWVER\r\n") << QByteArray();
    QTest::newRow("no start flag") << QByteArray("PJWVER*0c\r\n") << QByteArray();
    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("flag alone") << QByteArray("$") << QByteArray();
}

void TestSimulator::bodyOfASentence()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, body);
    QCOMPARE(JwSimulator::sentenceBody(line), body);
}

void TestSimulator::portsAreUsbDevices()
{
    const Board *first =
        add("BoardA,manufacturer=Acme Boards,vendor=12ab,product=00fe,product-name=Wind & Water,serial=S 7");
    const Board *second = add("silent");
    QCOMPARE(systemPorts(), (QStringList{first->portName(), second->portName()}));

    const QSerialPortInfo info(first->portName());
    QCOMPARE(info.manufacturer(), QStringLiteral("Acme Boards"));
    QCOMPARE(info.vendorIdentifier(), quint16(0x12ab));
    QCOMPARE(info.productIdentifier(), quint16(0x00fe));
    QCOMPARE(info.serialNumber(), QStringLiteral("S 7"));
    QCOMPARE(info.description(), QStringLiteral("Wind & Water"));
    const QSerialPortInfo plain(second->portName());
    QCOMPARE(plain.manufacturer(), QStringLiteral("STMicroelectronics."));
    QCOMPARE(plain.vendorIdentifier(), quint16(0x0483));
    QCOMPARE(plain.description(), QStringLiteral("Simulated board"));
}

void TestSimulator::chosenNamesDifferFromGivenNames()
{
    BoardConfig silent;
    silent.kind = BoardConfig::Kind::Silent;
    BoardConfig named = silent;
    named.port = QStringLiteral("ttyACM1");
    QVERIFY(m_testbed->add(QList<BoardConfig>{silent, silent, named}));
    QStringList names;
    const auto boards = m_testbed->boards();
    for (const Board *board : boards)
        names.append(board->portName());
    QCOMPARE(names.size(), 3);
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), 3);
    QCOMPARE(names[2], named.port);
    for (const QString &name : std::as_const(names))
        QVERIFY2(name.startsWith(QLatin1String("ttyACM")), qPrintable(name));
}

void TestSimulator::serialNumbersAreDistinct()
{
    BoardConfig named;
    named.port = uniquePortName();
    // The testbed must keep a serial number that the caller chose, even if another board already has this number.
    named.serial = add("silent")->config().serial;
    QVERIFY(m_testbed->add(named));
    add("silent");
    add("silent");
    QSet<QString> serials;
    const auto boards = m_testbed->boards();
    for (const Board *board : boards)
        serials.insert(QSerialPortInfo(board->portName()).serialNumber());
    QCOMPARE(serials.size(), 3);
}

void TestSimulator::takenPortNameIsRefused()
{
    const Board *board = add("silent");
    BoardConfig config;
    config.port = board->portName();
    QString error;
    QVERIFY(!m_testbed->add(config, &error));
    QVERIFY2(error.contains(board->portName()), qPrintable(error));
    QCOMPARE(m_testbed->boards().size(), 1);
}

void TestSimulator::nameThatAnotherProgramUsesIsLocked()
{
    const QString name = uniquePortName();
    QVERIFY(!JwSimulator::isLocked(name));
    // Serial programs without QLockFile write the lock file like this.
    const QByteArray text = QByteArray::number(::getpid()).rightJustified(10) + '\n';
    QFile lock(lockFile(name));
    QVERIFY(lock.open(QIODevice::ReadWrite));
    QCOMPARE(lock.write(text), qint64(text.size()));
    QVERIFY(lock.flush());
    QVERIFY(JwSimulator::isLocked(name));
    QVERIFY(lock.remove()); // fails if isLocked() removed the file as stale
    QVERIFY(!JwSimulator::isLocked(name));
}

void TestSimulator::nameWithAFifoAsLockIsLocked()
{
    const QString name = uniquePortName();
    QCOMPARE(::mkfifo(lockFile(name).toLocal8Bit().constData(), 0600), 0);
    QVERIFY(JwSimulator::isLocked(name)); // isLocked() returns at once, although the FIFO has no writer
    BoardConfig config;
    config.port = name;
    QVERIFY(m_testbed->add(config));
    m_testbed.reset();
    QVERIFY(QFile::remove(lockFile(name)));
}

void TestSimulator::longFileAsLockIsNotReadWhole()
{
    const auto mostMemory = [] {
        rusage usage = {};
        ::getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss; // KiB
    };
    const QString name = uniquePortName();
    QFile lock(lockFile(name));
    constexpr long size = 1024 * 1024; // KiB; needs no room on the disk, because nothing is written
    QVERIFY(lock.open(QIODevice::WriteOnly) && lock.resize(size * 1024LL));
    const long before = mostMemory();
    QVERIFY(JwSimulator::isLocked(name));
    QVERIFY(mostMemory() - before < size / 10);
    QVERIFY(lock.remove());
}

void TestSimulator::fifoInPlaceOfAReservationStopsNothing_data()
{
    QTest::addColumn<bool>("isBesideALeftReservation");
    QTest::newRow("at its path") << false;
    QTest::newRow("where QLockFile writes to remove one that was left behind") << true;
}

void TestSimulator::fifoInPlaceOfAReservationStopsNothing()
{
    QFETCH(const bool, isBesideALeftReservation);
    BoardConfig config;
    config.port = uniquePortName();
    const QString reservation = lockFile(QStringLiteral("jwsim.") + config.port);
    const QString fifo = isBesideALeftReservation ? reservation + QStringLiteral(".rmlock") : reservation;
    const auto clean = qScopeGuard([&] {
        QFile::remove(reservation);
        QFile::remove(fifo);
    });
    if (isBesideALeftReservation) {
        QFile left(reservation);
        QVERIFY(left.open(QIODevice::WriteOnly));
        QVERIFY(left.write("4194305\njwsim\n\n") > 0); // Linux gives no process such a large number
    }
    QCOMPARE(::mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
    QString error;
    QVERIFY2(m_testbed->add(config, &error), qPrintable(error));
}

void TestSimulator::moreThanMaxBoardsAreRefused()
{
    BoardConfig silent;
    silent.kind = BoardConfig::Kind::Silent;
    QList<BoardConfig> configs;
    for (int i = 0; i <= Testbed::maxBoards; ++i)
        configs.append(silent);
    QString error;
    QVERIFY(!m_testbed->add(configs, &error));
    QVERIFY2(error.contains(QString::number(Testbed::maxBoards)), qPrintable(error));
    QVERIFY(m_testbed->boards().isEmpty());
}

void TestSimulator::boardAnswersItsOwnQuery_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("reply");

    QTest::newRow("BoardA") << QByteArray("BoardA") << versionQuery << versionReply;
    QTest::newRow("BoardB") << QByteArray("BoardB") << versionQuery << QByteArray("$PJWVER,7300021,1,4,0*0e\r\n");
    QTest::newRow("BoardC") << QByteArray("BoardC") << informationRequest
                            << QByteArray("$PTJWRD,INF,CTRL,3,17,2,1.04,7300030,1*5d\r\n");
    QTest::newRow("BoardC, hardware version") << QByteArray("BoardC,hwversion=7300022") << informationRequest
                                              << QByteArray("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n");
    QTest::newRow("no hardware version") << QByteArray("BoardA,hwversion=") << versionQuery
                                         << JwSimulator::frameSentence("PJWVER,,1,4,0");
}

void TestSimulator::boardAnswersItsOwnQuery()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArray, query);
    QFETCH(QByteArray, reply);

    const Board *board = add(config.constData());
    QSerialPort port(board->portName());
    QVERIFY(port.open(QIODevice::ReadWrite));
    port.write(query);
    WAIT_FOR(port.bytesAvailable() >= reply.size());
    QCOMPARE(port.readAll(), reply);
    QCOMPARE(board->queryCount(), 1);
}

void TestSimulator::otherQueriesGetNoAnswer_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArray>("query");

    QTest::newRow("BoardA, information request") << QByteArray("BoardA") << informationRequest;
    QTest::newRow("BoardC, version query") << QByteArray("BoardC") << versionQuery;
    QTest::newRow("BoardC, other subcommand") << QByteArray("BoardC") << JwSimulator::frameSentence("PTJWWR,inf");
    QTest::newRow("wrong checksum") << QByteArray("BoardA") << QByteArray("$PJWVER*0d\r\n");
    QTest::newRow("no checksum") << QByteArray("BoardA") << QByteArray("$PJWVER\r\n");
    QTest::newRow("a field too many") << QByteArray("BoardA") << JwSimulator::frameSentence("PJWVER,");
    QTest::newRow("silent") << QByteArray("silent") << versionQuery;
}

void TestSimulator::otherQueriesGetNoAnswer()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArray, query);

    Board *board = add(config.constData());
    HostPort host(board);
    QVERIFY(host.write(query));
    WAIT_FOR(journalBytes(board, JournalEntry::Received) == query);
    // If the board had answered the query, the answer would arrive before these bytes.
    QVERIFY(board->send("end"));
    WAIT_FOR(host.received().endsWith("end"));
    QCOMPARE(host.received(), QByteArray("end"));
    QCOMPARE(board->queryCount(), 0);
}

void TestSimulator::queryInPiecesIsAnswered()
{
    const Board *board = add("BoardA");
    HostPort host(board);
    for (int i = 0; i < versionQuery.size(); ++i) {
        QVERIFY(host.write(versionQuery.mid(i, 1)));
        WAIT_FOR(journalBytes(board, JournalEntry::Received) == versionQuery.left(i + 1));
    }
    WAIT_FOR(host.received() == versionReply);
    QCOMPARE(journalTimes(board, JournalEntry::Received).size(), 1);
}

void TestSimulator::queryAfterGarbageIsAnswered()
{
    const Board *board = add("BoardA");
    HostPort host(board);
    QVERIFY(host.write("\x01\xff$PJW" + versionQuery));
    WAIT_FOR(host.received() == versionReply);
    QVERIFY(host.write(QByteArray(3000, 'x')));
    QVERIFY(host.write("\n" + versionQuery));
    WAIT_FOR(host.received() == versionReply.repeated(2));
}

void TestSimulator::queriesSentAtOnceAreAllAnswered()
{
    const Board *board = add("BoardA,delay=5");
    HostPort host(board);
    QVERIFY(host.write(versionQuery.repeated(3)));
    WAIT_FOR(host.received() == versionReply.repeated(3));
    QCOMPARE(board->queryCount(), 3);
}

void TestSimulator::replyIsDelayed()
{
    const Board *board = add("BoardA,delay=60");
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == versionReply);
    // The journal rounds times down to whole milliseconds, so a difference may be 1 ms too small.
    QVERIFY(journalTimes(board, JournalEntry::Sent).first() - journalTimes(board, JournalEntry::Received).first()
            >= 59);
}

void TestSimulator::slowLineDelaysBothDirections()
{
    // A byte takes 10 bit times, so the query's 12 bytes take 50 ms and the reply's 26 bytes take 108 ms.
    Board *board = add("BoardA,speed=2400");
    m_testbed->restartClock();
    QSignalSpy arrivals(board, &Board::received);
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == versionReply);
    QVERIFY(arrivals.size() > 1);
    const qint64 received = journalTimes(board, JournalEntry::Received).first();
    QVERIFY(received >= 48);
    QVERIFY(journalTimes(board, JournalEntry::Sent).first() - received >= 106);
}

void TestSimulator::lineReleasesItsPieces_data()
{
    QTest::addColumn<BoardConfig::Usb>("usb");
    QTest::addColumn<int>("speed");
    QTest::addColumn<int>("size");
    QTest::addColumn<QList<int>>("pieces");

    using Usb = BoardConfig::Usb;
    QTest::newRow("plain") << Usb::None << 0 << 100 << QList<int>{100};
    // The line carries 11.52 bytes in a millisecond and releases bytes once in each millisecond. A byte is released at
    // the millisecond that is nearest to the byte's end. So the first piece has the bytes of 1.5 ms: 17 bytes.
    QTest::newRow("plain, 115200 baud") << Usb::None << 115200 << 40 << QList<int>{17, 11, 12};
    QTest::newRow("bridge") << Usb::Bridge << 0 << 100 << QList<int>{11, 12, 11, 12, 11, 12, 11, 12, 8};
    QTest::newRow("bridge, 115200 baud") << Usb::Bridge << 115200 << 26 << QList<int>{11, 12, 3};
    QTest::newRow("bridge, 9600 baud") << Usb::Bridge << 9600 << 3 << QList<int>{1, 1, 1};
    QTest::newRow("bridge, 921600 baud") << Usb::Bridge << 921600 << 700 << QList<int>{92, 92, 92, 92, 92, 92, 93, 55};
    QTest::newRow("CDC, less than a packet") << Usb::Cdc << 0 << 26 << QList<int>{26};
    QTest::newRow("CDC, a packet") << Usb::Cdc << 0 << 64 << QList<int>{64};
    QTest::newRow("CDC, several") << Usb::Cdc << 0 << 226 << QList<int>{64, 64, 64, 34};
}

void TestSimulator::lineReleasesItsPieces()
{
    QFETCH(BoardConfig::Usb, usb);
    QFETCH(int, speed);
    QFETCH(int, size);
    QFETCH(QList<int>, pieces);

    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(i);
    JwSimulator::Pacer line(usb, speed);
    QByteArray released;
    QList<int> sizes;
    connect(&line, &JwSimulator::Pacer::released, this, [&](const QByteArray &piece) {
        released += piece;
        sizes.append(static_cast<int>(piece.size()));
    });
    for (int round = 1; round <= 2; ++round) { // the second round checks that the line starts again after an idle time
        line.push(bytes);
        WAIT_FOR(released.size() == round * size);
        QCOMPARE(released.right(size), bytes);
        QCOMPARE(sizes.mid(sizes.size() - pieces.size()), pieces);
        QCOMPARE(sizes.size(), round * pieces.size());
        QCOMPARE(line.waiting(), 0);
    }
}

void TestSimulator::repliesBackToBackKeepTheLineSpeed_data()
{
    QTest::addColumn<BoardConfig::Usb>("usb");
    QTest::newRow("plain line") << BoardConfig::Usb::None;
    QTest::newRow("bridge") << BoardConfig::Usb::Bridge;
}

void TestSimulator::repliesBackToBackKeepTheLineSpeed()
{
    QFETCH(BoardConfig::Usb, usb);
    // At 115200 baud, 40 replies of 26 bytes take 90.3 ms. This test pushes each reply when the reply before it has
    // arrived.
    JwSimulator::Pacer line(usb, 115200);
    int sent = 1;
    QByteArray::size_type arrived = 0;
    int milliseconds = 0; // number of releases: the line releases bytes once in each millisecond of its own clock
    connect(&line, &JwSimulator::Pacer::released, this, [&](const QByteArray &bytes) {
        ++milliseconds;
        arrived += bytes.size();
        if (line.waiting() == 0 && sent++ < 40)
            line.push(QByteArray(26, 'x'));
    });
    line.push(QByteArray(26, 'x'));
    WAIT_FOR(arrived == 40 * 26);
    QVERIFY2(milliseconds >= 89 && milliseconds <= 130, qPrintable(QString::number(milliseconds)));
    QVERIFY2(usb == BoardConfig::Usb::None || milliseconds <= 120, qPrintable(QString::number(milliseconds)));
}

void TestSimulator::shortPacketsFillAFrame()
{
    // USB carries 19 packets in a frame of 1 ms, so 1900 packets take 100 ms. This test pushes each packet when the
    // packet before it has arrived.
    const int most = 1900;
    JwSimulator::Pacer line(BoardConfig::Usb::Cdc, 0);
    int packets = 0;
    connect(&line, &JwSimulator::Pacer::released, this, [&] {
        if (++packets < most)
            line.push("x");
    });
    int milliseconds = 0;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, [&] { ++milliseconds; });
    timer.start(1);
    QElapsedTimer clock;
    clock.start();
    line.push("x");
    WAIT_FOR(packets == most);
    QVERIFY2(clock.elapsed() >= 95, qPrintable(QString::number(clock.elapsed())));
    // Several packets must fit into one millisecond, so there must be fewer ticks of the 1 ms timer than packets. The
    // test counts ticks and does not read the clock, because a busy machine delays the timer and the packets alike.
    QVERIFY2(milliseconds < most / 2, qPrintable(QString::number(milliseconds)));
}

void TestSimulator::hostGetsBridgeFrames()
{
    // A bridge without `speed` carries 115200 baud. The 26 queries have 312 bytes, which take 27 ms. The board ignores
    // 25 queries and answers the last one with 2000 bytes of noise and a reply: 2026 bytes, which take 175 ms.
    Board *board = add("BoardA,usb=bridge,noise=2000,ignore=25");
    m_testbed->restartClock();
    QSignalSpy arrivals(board, &Board::received);
    const PromptHost host(board);
    QVERIFY(host.write(versionQuery.repeated(26)));
    WAIT_FOR(host.received().endsWith(versionReply));
    QCOMPARE(host.received().size(), 2000 + versionReply.size());
    QVERIFY2(host.pieces().size() > 20, qPrintable(QString::number(host.pieces().size())));
    QCOMPARE(arrivals.first().first().toByteArray(), versionQuery.left(11));
    const qint64 received = journalTimes(board, JournalEntry::Received).last();
    QVERIFY(received >= 26);
    QVERIFY(journalTimes(board, JournalEntry::Sent).first() - received >= 173);
}

void TestSimulator::hostGetsPackets()
{
    Board *board = add("BoardA,usb=cdc,noise=20000");
    QSignalSpy arrivals(board, &Board::received);
    const PromptHost host(board);
    QVERIFY(host.write(QByteArray(88, 'x') + versionQuery));
    WAIT_FOR(host.received().endsWith(versionReply));
    QCOMPARE(host.received().size(), 20000 + versionReply.size());
    QVERIFY2(host.pieces().size() > 5, qPrintable(QString::number(host.pieces().size())));
    QCOMPARE(arrivals.size(), 2);
    QCOMPARE(arrivals.first().first().toByteArray(), QByteArray(64, 'x'));
}

void TestSimulator::replyIsCutInChunks()
{
    Board *board = add("BoardA,chunk=9,gap=10");
    QSignalSpy pieces(board, &Board::sent);
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == versionReply);
    WAIT_FOR(pieces.size() == 3);
    QCOMPARE(pieces.at(0).first().toByteArray(), versionReply.left(9));
    QCOMPARE(pieces.at(2).first().toByteArray(), versionReply.mid(18));
    const QList<qint64> times = journalTimes(board, JournalEntry::Sent);
    QVERIFY(times.at(1) - times.at(0) >= 9 && times.at(2) - times.at(1) >= 9);
}

void TestSimulator::noiseIsNeverNul()
{
    const int noise = 3000;
    const Board *board = add("BoardA,noise=3000");
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received().size() == noise + versionReply.size());
    QVERIFY(host.received().endsWith(versionReply));
    const QByteArray bytes = host.received().left(noise);
    QSet<char> values;
    for (const char byte : bytes)
        values.insert(byte);
    QCOMPARE(values.size(), 255);
    QVERIFY(!values.contains('\0'));
}

void TestSimulator::firstQueriesAreIgnored()
{
    const Board *board = add("BoardA,ignore=2");
    HostPort host(board);
    for (int i = 1; i <= 2; ++i) {
        QVERIFY(host.write(versionQuery));
        WAIT_FOR(board->queryCount() == i);
    }
    QCOMPARE(host.received(), QByteArray());
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == versionReply);
    QCOMPARE(board->queryCount(), 3);
}

void TestSimulator::queryGetsSeveralReplies()
{
    const Board *board = add("BoardA,replies=3,checksum=wrong");
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == JwSimulator::frameSentence("PJWVER,7300022,1,4,0", false).repeated(3));
}

void TestSimulator::cableIsPulledAfterBytes()
{
    Board *board = add("BoardA,pull-after-bytes=30,replies=2");
    QSignalSpy pulled(board, &Board::pulled);
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(host.received() == versionReply + versionReply.left(4));
    WAIT_FOR(pulled.size() == 1);
    QVERIFY(!board->isPlugged());
    QVERIFY(board->pullTime() >= 0);
    QVERIFY(!board->send("more"));
    QCOMPARE(journalBytes(board, JournalEntry::Sent), versionReply + versionReply.left(4));
}

void TestSimulator::cableIsPulledAfterTime()
{
    Board *board = add("silent,pull-after=20");
    m_testbed->restartClock();
    QSignalSpy pulled(board, &Board::pulled);
    QVERIFY(systemPorts().contains(board->portName()));
    WAIT_FOR(pulled.size() == 1);
    QVERIFY(board->pullTime() >= 19);
    QVERIFY(!systemPorts().contains(board->portName()));
}

void TestSimulator::busyPortDoesNotOpen()
{
    const Board *board = add("BoardA,open=busy");
    QVERIFY(systemPorts().contains(board->portName()));
    QSerialPort port(board->portName());
    QVERIFY(!port.open(QIODevice::ReadWrite));
    QCOMPARE(port.error(), QSerialPort::PermissionError);
}

void TestSimulator::deniedPortOpensForNobody()
{
    Board *board = add("BoardA,open=denied");
    QVERIFY(systemPorts().contains(board->portName()));
    QSerialPort port(board->portName());
    QVERIFY(!port.open(QIODevice::ReadWrite));
    QCOMPARE(port.error(), QSerialPort::PermissionError);
    errno = 0;
    QVERIFY(!HostPort(board).isOpen());
    QCOMPARE(errno, EACCES);
    QVERIFY(!board->send("x"));
}

void TestSimulator::seedRepeatsTheBytes()
{
    const Board *boards[] = {add("babble,interval=1,seed=5"), add("babble,interval=1,seed=5"),
                             add("babble,interval=1,seed=6")};
    for (const Board *board : boards)
        WAIT_FOR(journalBytes(board, JournalEntry::Sent).size() >= 100);
    const QByteArray bytes = journalBytes(boards[0], JournalEntry::Sent).left(100);
    QCOMPARE(journalBytes(boards[1], JournalEntry::Sent).left(100), bytes);
    QVERIFY(journalBytes(boards[2], JournalEntry::Sent).left(100) != bytes);
}

void TestSimulator::otherSendsWithoutAQuery()
{
    const Board *board = add("other,interval=10");
    HostPort host(board);
    WAIT_FOR(host.received().count('\n') >= 4);
    for (const QByteArray &line : host.received().split('\n').mid(0, 4))
        QVERIFY2(!JwSimulator::sentenceBody(line).isNull(), line.constData());
    const QList<qint64> times = journalTimes(board, JournalEntry::Sent);
    QVERIFY(times.last() - times.first() >= (times.size() - 1) * 10 - 5);
    QCOMPARE(board->queryCount(), 0);
}

void TestSimulator::boardSendsAnyBytes()
{
    Board *board = add("silent");
    HostPort host(board);
    QByteArray bytes;
    for (int value = 0; value < 256; ++value)
        bytes += static_cast<char>(value);
    QVERIFY(board->send(bytes));
    WAIT_FOR(host.received() == bytes);
}

void TestSimulator::boardKeepsBytesUntilTheHostReads()
{
    Board *board = add("silent");
    QSignalSpy sent(board, &Board::sent);
    HostPort host(board);
    QByteArray bytes;
    for (int i = 0; bytes.size() < 200000; ++i)
        bytes += QByteArray::number(i) + ' ';
    QVERIFY(board->send(bytes));
    QVERIFY(board->send("end"));
    QCOMPARE(sent.size(), 0);
    WAIT_FOR(host.received().size() == bytes.size() + 3);
    QVERIFY(host.received() == bytes + "end");
    QCOMPARE(sent.size(), 2);
}

void TestSimulator::babbleIsDroppedWhileTheHostDoesNotRead()
{
    Board *board = add("babble,interval=1");
    QSignalSpy sent(board, &Board::sent);
    HostPort host(board);
    // Wait until the board can send no more bursts: then the port is full.
    qsizetype before = -1;
    while (before != sent.size()) {
        before = sent.size();
        QSignalSpy other(board, &Board::sent);
        other.wait(500);
    }
    const auto kept = journalBytes(board, JournalEntry::Sent).size();
    // The board sends one burst of at most 64 bytes in each turn of the event loop. If the board had kept the bursts
    // that did not fit into the full port, these bursts would arrive as well.
    const int turns = 20;
    for (int i = 0; i < turns; ++i) {
        host.received();
        QCoreApplication::processEvents();
    }
    QVERIFY(host.received().size() <= kept + (turns + 1) * 64);
    WAIT_FOR(sent.size() > before + 5); // the port has space again, so the board sends again
}

void TestSimulator::journalHasAllBytes()
{
    Board *board = add("BoardA");
    m_testbed->restartClock();
    QSignalSpy sentences(board, &Board::sentenceReceived);
    HostPort host(board);
    QVERIFY(host.write("hello\n" + versionQuery + "rest"));
    WAIT_FOR(host.received() == versionReply);
    WAIT_FOR(journalBytes(board, JournalEntry::Received).endsWith("rest"));
    QCOMPARE(sentences.size(), 1);
    QCOMPARE(sentences.first().first().toByteArray(), QByteArray("$PJWVER*0c"));

    const QList<JournalEntry> journal = board->journal();
    QCOMPARE(journal.size(), 4);
    const QByteArray texts[] = {"hello\n", versionQuery, versionReply, "rest"};
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(journal.at(i).bytes, texts[i]);
        QCOMPARE(journal.at(i).direction, i == 2 ? JournalEntry::Sent : JournalEntry::Received);
        QVERIFY(journal.at(i).milliseconds >= 0);
    }
    QVERIFY(journal.at(1).milliseconds <= journal.at(2).milliseconds);
}

void TestSimulator::journalKeepsTheNewest()
{
    const int most = 4 * 1024 * 1024;
    Board *board = add("silent");
    QSignalSpy sent(board, &Board::sent);
    const PromptHost host(board);
    for (const char letter : {'a', 'b', 'c', 'd', 'e', 'f'})
        QVERIFY(board->send(QByteArray(1024 * 1024, letter)));
    WAIT_FOR(sent.size() == 6);
    const QByteArray bytes = journalBytes(board, JournalEntry::Sent);
    QCOMPARE(bytes.size(), most);
    QVERIFY(bytes.startsWith('c') && bytes.endsWith('f'));
    // The journal keeps its newest entry, even if this entry alone exceeds the limit.
    QVERIFY(board->send(QByteArray(most + 1, 'g')));
    WAIT_FOR(sent.size() == 7);
    QCOMPARE(journalBytes(board, JournalEntry::Sent), QByteArray(most + 1, 'g'));
}

void TestSimulator::pulledCableRemovesThePort()
{
    Board *board = add("BoardA");
    QSerialPort port(board->portName());
    QVERIFY(port.open(QIODevice::ReadWrite));
    connect(&port, &QSerialPort::errorOccurred, &port, &QSerialPort::close);
    board->pull();
    QVERIFY(!board->isPlugged());
    QVERIFY(!systemPorts().contains(board->portName()));
    WAIT_FOR(!port.isOpen());
    QVERIFY(!HostPort(board).isOpen());
    board->pull(); // has no effect, because the cable is already pulled
    QVERIFY(!board->isPlugged());
}

void TestSimulator::pluggedPortWorksAgain()
{
    Board *board = add("BoardA,pull-after-bytes=26");
    QString error;
    QVERIFY(!board->plug(&error));
    QVERIFY(!error.isEmpty());
    QSignalSpy pulled(board, &Board::pulled);
    for (int round = 1; round <= 3; ++round) {
        HostPort host(board);
        QVERIFY(host.isOpen());
        QVERIFY(host.write(versionQuery));
        WAIT_FOR(host.received() == versionReply);
        if (round > 1) // in round 1 the key pull-after-bytes pulls the cable; the key has no effect in later rounds
            board->pull();
        WAIT_FOR(pulled.size() == round);
        QVERIFY2(board->plug(&error), qPrintable(error));
        QCOMPARE(systemPorts(), QStringList(board->portName()));
    }
    QCOMPARE(board->queryCount(), 3); // three rounds; a pull does not reset the count
}

void TestSimulator::boardCanBePulledInItsOwnSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("received") << 0;
    QTest::newRow("sentenceReceived") << 1;
    QTest::newRow("sent") << 2;
}

void TestSimulator::boardCanBePulledInItsOwnSignal()
{
    QFETCH(int, signal);

    Board *board = add("BoardA,replies=3,chunk=10");
    void (Board::*const signals_[])(const QByteArray &) = {&Board::received, &Board::sentenceReceived, &Board::sent};
    connect(board, signals_[signal], board, &Board::pull);
    QSignalSpy pulled(board, &Board::pulled);
    HostPort host(board);
    QVERIFY(host.write(versionQuery));
    WAIT_FOR(pulled.size() == 1);
    QVERIFY(journalBytes(board, JournalEntry::Sent).size() <= (signal == 2 ? 10 : 0));
}

SIMULATED_PORTS_MAIN(TestSimulator)
#include "tst_simulator.moc"
