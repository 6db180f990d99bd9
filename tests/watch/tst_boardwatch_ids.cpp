#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/usbtree.h"
#include "support/watch/watchfixture.h"

#include <QTest>

#include <utility>

using JwSimulator::Board;

namespace {

/// Returns the log records about serial numbers that more than one board has.
QVector<LogRecord> reportsOfTwins(const WatchFixture &fixture)
{
    QVector<LogRecord> reports;
    for (const LogRecord &record : std::as_const(fixture.log.sink->records)) {
        if (record.file == "boardids.cpp")
            reports.append(record);
    }
    return reports;
}

} // namespace

class TestBoardWatchIds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serialNumberAndInterface();
    void placeWithoutASerialNumber();
    void boardsWithoutASerialNumberAreToldApartByTheirPlace();
    void serialNumbersAreToldApartByTheInterface();
    void twoBoardsWithOneSerialNumber();
    void boardsWithOneSerialNumberKeepTheirIds();
    void threeBoardsWithOneSerialNumber();
    void lendingKnowsBoardsWithOneSerialNumber();
};

void TestBoardWatchIds::serialNumberAndInterface()
{
    WatchFixture fixture;
    fixture.attach("BoardA", QStringLiteral("NUMBER 7"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const JwDevice::Board board = fixture.watch->boards().first();
    QCOMPARE(board.id, board.serialNumber + QStringLiteral(":1.0"));
    QCOMPARE(board.idBasis, JwDevice::Board::SerialNumber);
}

void TestBoardWatchIds::placeWithoutASerialNumber()
{
    WatchFixture fixture;
    Board *const simulated = fixture.attach("BoardA", QStringLiteral(""));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found 1-01:1.0")});
    const JwDevice::Board board = fixture.watch->boards().first();
    QCOMPARE(board.idBasis, JwDevice::Board::Place);
    QCOMPARE(board.place, QStringLiteral("1-01:1.0"));
    QVERIFY(board.serialNumber.isEmpty());
    QVERIFY(!board.sharesSerialNumber);
    simulated->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QVERIFY(simulated->plug());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back 1-01:1.0"));
}

void TestBoardWatchIds::boardsWithoutASerialNumberAreToldApartByTheirPlace()
{
    WatchFixture fixture;
    fixture.attach("BoardA", QStringLiteral(""));
    fixture.attach("BoardA", QStringLiteral(""));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    fixture.timeline.sort();
    QCOMPARE(fixture.timeline, QStringList({QStringLiteral("found 1-01:1.0"), QStringLiteral("found 1-02:1.0")}));
    QVERIFY(reportsOfTwins(fixture).isEmpty());
}

void TestBoardWatchIds::serialNumbersAreToldApartByTheInterface()
{
    // Two USB devices have the same serial number. The first device has its board on interface 1.0. The second device
    // has a silent port on interface 1.0, and its board on interface 1.4.
    WatchFixture fixture;
    const Board *const first = fixture.attach("BoardA", QStringLiteral("TWICE"));
    const Board *const silent = fixture.attach("silent", QStringLiteral("TWICE"));
    const Board *const second = fixture.attach("BoardA", QStringLiteral("TWICE"));
    UsbTree::moveTo(second->portName(), silent->portName(), QStringLiteral("1.4"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    QCOMPARE(fixture.found(first).id, QStringLiteral("TWICE:1.0"));
    QCOMPARE(fixture.found(second).id, QStringLiteral("TWICE:1.4"));
}

void TestBoardWatchIds::twoBoardsWithOneSerialNumber()
{
    WatchFixture fixture;
    const Board *const first = fixture.attach("BoardA", QStringLiteral("TWIN"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found TWIN:1.0")});
    QVERIFY(!fixture.found(first).sharesSerialNumber);
    const Board *const second = fixture.attach("BoardA", QStringLiteral("TWIN"));
    QTRY_COMPARE(fixture.timeline, QStringList({QStringLiteral("found TWIN:1.0"), QStringLiteral("found 1-02:1.0")}));
    QCOMPARE(fixture.found(first).id, QStringLiteral("TWIN:1.0")); // an id does not change while the board is there
    QVERIFY(fixture.found(first).sharesSerialNumber);
    QVERIFY(fixture.found(second).sharesSerialNumber);
    QCOMPARE(fixture.found(second).idBasis, JwDevice::Board::Place);
    QCOMPARE(fixture.found(second).serialNumber, QStringLiteral("TWIN"));
    QCOMPARE(reportsOfTwins(fixture).size(), 1);
    const LogRecord record = reportsOfTwins(fixture).first();
    QCOMPARE(record.level, Logger::Warning);
    for (const char *part : {"TWIN", "1-01:1.0", "1-02:1.0"})
        QVERIFY2(record.text.contains(QLatin1String(part)), qPrintable(record.text));
}

void TestBoardWatchIds::boardsWithOneSerialNumberKeepTheirIds()
{
    WatchFixture fixture;
    Board *const first = fixture.attach("BoardA", QStringLiteral("TWIN"));
    Board *const second = fixture.attach("BoardA", QStringLiteral("TWIN"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    const QString firstId = fixture.found(first).id;
    const QString secondId = fixture.found(second).id;
    QVERIFY(firstId != secondId);
    // Pull both boards, then plug in the second before the first.
    first->pull();
    second->pull();
    QTRY_VERIFY(fixture.watch->boards().isEmpty());
    QVERIFY(second->plug());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back ") + secondId);
    QVERIFY(first->plug());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back ") + firstId);
    // Pull each board while the other stays.
    for (Board *const board : {first, second}) {
        const QString id = fixture.found(board).id;
        board->pull();
        QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("lost %1 cablePulled").arg(id));
        QVERIFY(board->plug());
        QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back ") + id);
    }
    QCOMPARE(reportsOfTwins(fixture).size(), 1); // one log record, although the boards came several times
}

void TestBoardWatchIds::threeBoardsWithOneSerialNumber()
{
    WatchFixture fixture;
    for (int i = 0; i < 3; ++i)
        fixture.attach("BoardA", QStringLiteral("TRIPLET"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 3);
    QSet<QString> ids;
    const auto boards = fixture.watch->boards();
    for (const JwDevice::Board &board : boards) {
        ids.insert(board.id);
        QVERIFY(board.sharesSerialNumber);
    }
    QCOMPARE(ids,
             (QSet<QString>{QStringLiteral("TRIPLET:1.0"), QStringLiteral("1-02:1.0"), QStringLiteral("1-03:1.0")}));
}

void TestBoardWatchIds::lendingKnowsBoardsWithOneSerialNumber()
{
    WatchFixture fixture;
    const Board *const first = fixture.attach("BoardA", QStringLiteral("TWIN"));
    const Board *const second = fixture.attach("BoardA", QStringLiteral("TWIN"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    const QString id = fixture.found(second).id;
    QVERIFY(fixture.watch->lend(id));
    QVERIFY(canBeOpened(second));
    QVERIFY(portOf(fixture.found(first))->isOpen());
    QVERIFY(fixture.watch->takeBack(id));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back ") + id);
}

SIMULATED_PORTS_MAIN(TestBoardWatchIds)
#include "tst_boardwatch_ids.moc"
