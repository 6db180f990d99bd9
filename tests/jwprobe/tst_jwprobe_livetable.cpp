#include <jwprobe/watch/livetable.h>

#include <QTest>

using namespace JwProbe;

namespace {

WatchEvent makeEvent(WatchEvent::Kind kind, const QString &id)
{
    WatchEvent result{kind, {}, {}, {}};
    result.board.id = id;
    result.board.type = JwDevice::BoardA;
    result.board.portName = QStringLiteral("ttyACM0");
    if (kind == WatchEvent::Lost)
        result.board.loss = JwDevice::Board::CablePulled;
    return result;
}

QMap<QString, Refusal> refusals(const QStringList &ports, const QString &summary)
{
    QMap<QString, Refusal> result;
    for (const QString &port : ports)
        result.insert(port, {PortIdentity(), QStringLiteral("silent"), summary});
    return result;
}

} // namespace

/// Tests the table that jwprobe --watch draws on a terminal.
class TestJwprobeLiveTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowShowsTheNewestOfItsBoard();
    void rowsKeepTheirOrder();
    void dayIsShownIfItIsNotToday();
    void sharedSerialNumberIsNoted();
    void refusedPortsStandBelowInTheOrderOfTheirNumbers();
    void drawingReplacesTheTableBefore();
    void unchangedTableIsNotDrawn();
    void narrowerTerminalHasMoreLinesToReplace();
    void tableIsNoHigherThanTheTerminal();
    void oldestLostBoardIsForgotten();

private:
    static QStringList lines(LiveTable &table, int width = 80, int height = 24)
    {
        QString text = table.redrawn(width, height);
        return text.mid(text.indexOf(QLatin1String("\033[J")) + 3).chopped(1).split(QLatin1Char('\n'));
    }
};

void TestJwprobeLiveTable::rowShowsTheNewestOfItsBoard()
{
    LiveTable table(QStringLiteral("title"));
    QCOMPARE(lines(table).value(0), QStringLiteral("title"));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("X")));
    table.add(makeEvent(WatchEvent::Payload, QStringLiteral("X")));
    table.add(makeEvent(WatchEvent::Lost, QStringLiteral("X")));
    WatchEvent back = makeEvent(WatchEvent::Back, QStringLiteral("X"));
    back.board.portName = QStringLiteral("ttyACM7");
    back.board.hardwareVersion = QStringLiteral("7300022");
    table.add(back);
    table.add(makeEvent(WatchEvent::Payload, QStringLiteral("X")));
    const QStringList shown = lines(table);
    QCOMPARE(shown.size(), 4);
    QCOMPARE(
        shown[3].simplified(),
        QStringLiteral("BoardA ttyACM7 X 7300022 back %1 1 2").arg(back.time.toString(QStringLiteral("HH:mm:ss"))));
}

void TestJwprobeLiveTable::rowsKeepTheirOrder()
{
    LiveTable table(QStringLiteral("title"));
    for (const char *id : {"B", "A", "C"})
        table.add(makeEvent(WatchEvent::Found, QLatin1String(id)));
    table.add(makeEvent(WatchEvent::Lost, QStringLiteral("B")));
    const QStringList shown = lines(table);
    QCOMPARE(shown.size(), 6);
    QVERIFY(shown[3].contains(QLatin1String(" B ")) && shown[3].contains(QLatin1String("cable pulled")));
    QVERIFY(shown[4].contains(QLatin1String(" A ")));
    QVERIFY(shown[5].contains(QLatin1String(" C ")));
}

void TestJwprobeLiveTable::dayIsShownIfItIsNotToday()
{
    LiveTable table(QStringLiteral("title"));
    WatchEvent old = makeEvent(WatchEvent::Found, QStringLiteral("X"));
    old.time = QDateTime(QDate(2024, 2, 29), QTime(12, 0));
    table.add(old);
    QVERIFY(lines(table)[3].contains(QLatin1String("2024-02-29")));
}

void TestJwprobeLiveTable::sharedSerialNumberIsNoted()
{
    LiveTable table(QStringLiteral("title"));
    WatchEvent shared = makeEvent(WatchEvent::Found, QStringLiteral("X"));
    shared.board.sharesSerialNumber = true;
    shared.board.serialNumber = QStringLiteral("SAME");
    table.add(shared);
    const QStringList shown = lines(table);
    QCOMPARE(shown.size(), 5);
    QVERIFY(shown[4].contains(QLatin1String("serial number: SAME")));
}

void TestJwprobeLiveTable::refusedPortsStandBelowInTheOrderOfTheirNumbers()
{
    LiveTable table(QStringLiteral("title"));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("X")));
    table.setRefusals(
        refusals({QStringLiteral("ttyACM10"), QStringLiteral("ttyACM9")}, QStringLiteral("a long reason")));
    const QStringList shown = lines(table);
    QCOMPARE(shown.mid(4),
             (QStringList{QString(), QStringLiteral("Ports without a board:"),
                          QStringLiteral("  ttyACM9   a long reason"), QStringLiteral("  ttyACM10  a long reason")}));
    table.setRefusals({});
    QCOMPARE(lines(table).size(), 4);
}

void TestJwprobeLiveTable::drawingReplacesTheTableBefore()
{
    LiveTable table(QStringLiteral("title"));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("X")));
    QVERIFY(table.redrawn(80, 24).startsWith(QLatin1String("\r\033[J"))); // there is no older table to clear
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("Y")));
    QVERIFY(table.redrawn(80, 24).startsWith(QLatin1String("\r\033[4A\033[J")));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("Z")));
    QVERIFY(table.redrawn(80, 24).startsWith(QLatin1String("\r\033[5A\033[J")));
}

void TestJwprobeLiveTable::unchangedTableIsNotDrawn()
{
    LiveTable table(QStringLiteral("title"));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("X")));
    QVERIFY(!table.redrawn(80, 24).isEmpty());
    QCOMPARE(table.redrawn(80, 24), QString());
}

void TestJwprobeLiveTable::narrowerTerminalHasMoreLinesToReplace()
{
    LiveTable table(QString(60, QLatin1Char('t')));
    table.redrawn(80, 24);
    // Three lines: the title, an empty line, and a line of 23 characters. At 20 columns they need 3, 1 and 2 lines.
    QVERIFY(table.redrawn(20, 24).startsWith(QLatin1String("\r\033[6A\033[J")));
    const QStringList shown = lines(table, 30, 24);
    for (const QString &line : shown)
        QVERIFY2(line.size() <= 30, qPrintable(line));
}

void TestJwprobeLiveTable::tableIsNoHigherThanTheTerminal()
{
    LiveTable table(QStringLiteral("title"));
    for (int i = 0; i < 20; ++i)
        table.add(makeEvent(WatchEvent::Found, QString::number(i)));
    const QStringList shown = lines(table, 80, 10);
    QCOMPARE(shown.size(), 9); // the tenth line is for the cursor
    QCOMPARE(shown.last(), QStringLiteral("(15 more lines)")); // the table has 23 lines, and 8 of them are shown
}

void TestJwprobeLiveTable::oldestLostBoardIsForgotten()
{
    LiveTable table(QStringLiteral("title"));
    table.add(makeEvent(WatchEvent::Found, QStringLiteral("there")));
    QDateTime time = QDateTime::currentDateTime();
    for (int i = 0; i < 105; ++i) {
        const QString id = QStringLiteral("lost%1").arg(i);
        table.add(makeEvent(WatchEvent::Found, id));
        WatchEvent lost = makeEvent(WatchEvent::Lost, id);
        lost.time = time = time.addMSecs(1);
        table.add(lost);
    }
    const QString text = lines(table, 80, 1000).join(QLatin1Char('\n'));
    QCOMPARE(text.count(QLatin1String("cable pulled")), 100);
    QVERIFY(text.contains(QLatin1String(" there ")));
    QVERIFY(!text.contains(QLatin1String(" lost4 ")));
    QVERIFY(text.contains(QLatin1String(" lost5 ")) && text.contains(QLatin1String(" lost104 ")));
}

QTEST_GUILESS_MAIN(TestJwprobeLiveTable)
#include "tst_jwprobe_livetable.moc"
