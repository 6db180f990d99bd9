#include "support/jwmonitor/comboboxkeys.h"
#include "support/device/communicatorwatch.h"
#include "support/jwmonitor/lastwholerow.h"
#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/trafficrows.h"

#include <common/printable.h>
#include <jwmonitor/traffic/boardtraffic.h>
#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/traffic/trafficmodel.h>
#include <jwmonitor/traffic/traffictext.h>
#include <jwmonitor/traffic/trafficview.h>

#include <QAction>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextDocument>

#include <memory>

using namespace JwMonitor;

namespace {

const QString acm0 = QStringLiteral("ttyACM0");
const QString acm1 = QStringLiteral("ttyACM1");
const QString version = QStringLiteral("$PJWVER,7300021,1,4,0*0e\r\n");
const QString spoiltVersion = QStringLiteral("$PJWVER,7300021,1,4,0*0f\r\n");
const QString information = QStringLiteral("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n");
const QString query = QStringLiteral("$PJWVER*0c\r\n");

QString numbered(int number)
{
    return framed(QStringLiteral("PJWNUM,%1").arg(number));
}

} // namespace

/// Tests jwmonitor's table of payloads.
class TestTraffic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void rowsComeInBatches();
    void eachColumnStandsAtItsKeyAndOnceInAFile();
    void aRowTellsAllOfItsPayload();
    void aToolTipShowsEachCharacter_data();
    void aToolTipShowsEachCharacter();
    void theOldestRowsGo();
    void aBurstLargerThanTheTableLeavesItsEnd();
    void clearEmptiesTheTable();
    void progressOfASentPayload();
    void progressOfAPayloadThatIsNoRowYet();
    void progressNeverGoesBack();
    void progressOfABoardThatCameBack();
    void progressIsToldOfTheNewestOfAnId();
    void progressOfUnknownPayloadsIsIgnored();

    void whatABoardSendsComesIn();
    void whatCameBeforeComesIn();
    void transferredIsMarked();
    void aBoardMayGo();
    void aBoardMayGoBefore();

    void filtersByPort();
    void filterByPortFollowsTheBoard();
    void filterByPortKeepsTheNewestBoards();
    void filtersByDirection();
    void filtersByIdentifier();
    void filtersByText();
    void filtersTogether();
    void escapeTakesTheFilterAway();
    void filtersNewPayloads();
    void aFilterOfALargeTableIsComplete();
    void rowsGoUnderAFilter();
    void progressIsToldUnderAFilter();

    void followsTheNewestRow();
    void theTopRowIsWhole();
    void staysWhereItWasScrolled();
    void keepsItsPlaceWhileRowsGo();
    void followsAgainAtTheEnd();
    void pauseHoldsTheTable();
    void filtersWhilePaused();
    void rawShowsThePayloadAsItIs();
    void copiesTheSelectedRows();
    void tellsHowManyAreShown();
    void keysReachEverything();

    void savesText();
    void savesCsv();
    void csvHasNoFormulaOfABoard_data();
    void csvHasNoFormulaOfABoard();
    void copiedRowHasNoFormulaOfABoard_data();
    void copiedRowHasNoFormulaOfABoard();
    void savesWhatIsShown();
    void savesWhatWasThereAtItsBeginning();
    void tellsWhyItCanNotSave();

private:
    void addSamples();
    QStringList payloads() const { return columnTexts(m_table->model(), TrafficColumn::Raw); }
    QString statusText() const { return m_view->findChild<QLabel *>(QStringLiteral("status"))->text(); }
    QAction *action(const char *name) const { return m_view->findChild<QAction *>(QString::fromLatin1(name)); }
    QLineEdit *edit(const char *name) const { return m_view->findChild<QLineEdit *>(QString::fromLatin1(name)); }
    void choose(const char *box, const QString &text) { chooseByKeys(m_view.get(), box, text); }
    QString save(const QString &name);

    std::unique_ptr<TrafficModel> m_model;
    std::unique_ptr<TrafficView> m_view;
    HistoryTable *m_table = nullptr;
    QTemporaryDir m_folder;
};

void TestTraffic::init()
{
    m_model = std::make_unique<TrafficModel>();
    m_view = std::make_unique<TrafficView>(m_model.get());
    m_table = m_view->findChild<HistoryTable *>();
    m_view->resize(900, 500);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
}

void TestTraffic::cleanup()
{
    m_view.reset();
    m_model.reset();
}

void TestTraffic::addSamples()
{
    m_model->append(received(acm0, version));
    m_model->append(received(acm1, information));
    m_model->append(sent(acm0, query, 7));
    m_model->append(received(acm1, spoiltVersion));
    QTRY_COMPARE(m_table->model()->rowCount(), 4);
}

QString TestTraffic::save(const QString &name)
{
    QSignalSpy saved(m_view.get(), &TrafficView::saved);
    const QString path = m_folder.filePath(name);
    m_view->saveTo(path);
    if (saved.isEmpty())
        saved.wait();
    QFile file(path);
    return saved.isEmpty() || !file.open(QIODevice::ReadOnly) ? QString() : QString::fromUtf8(file.readAll());
}

void TestTraffic::rowsComeInBatches()
{
    QSignalSpy inserted(m_model.get(), &QAbstractItemModel::rowsInserted);
    for (int i = 0; i < 1000; ++i)
        m_model->append(received(acm0, version));
    QCOMPARE(m_model->rowCount(), 0);
    QTRY_COMPARE(m_model->rowCount(), 1000);
    QCOMPARE(inserted.size(), 1);
}

void TestTraffic::eachColumnStandsAtItsKeyAndOnceInAFile()
{
    const QVector<TrafficColumn> columns = trafficColumns();
    QCOMPARE(columns.size(), static_cast<int>(TrafficColumn::Count));
    for (int i = 0; i < columns.size(); ++i) {
        QCOMPARE(static_cast<int>(columns.at(i).key), i);
        QCOMPARE(trafficFileColumns().at(i).filePlace, i);
        QCOMPARE(m_model->headerData(i, Qt::Horizontal).toString(), columns.at(i).title);
        QVERIFY(!columns.at(i).title.isEmpty());
    }
}

void TestTraffic::aRowTellsAllOfItsPayload()
{
    const QDateTime time = QDateTime::fromString(QStringLiteral("2024-05-06T07:08:09.123"), Qt::ISODateWithMs);
    m_model->append({time.toMSecsSinceEpoch() * 1000 + 456, acm0, Direction::Received, spoiltVersion, 12});
    m_model->flush();
    QStringList cells;
    for (int column = 0; column < m_model->columnCount(); ++column)
        cells << m_model->index(0, column).data().toString();
    QCOMPARE(cells,
             QStringList({QStringLiteral("07:08:09.123"), acm0, QStringLiteral("received"), QStringLiteral("12"),
                          QString(), QStringLiteral("bad"), QStringLiteral("PJWVER"),
                          QStringLiteral("hwversion=7300021  v1=1  v2=4  v3=0"),
                          QStringLiteral("$PJWVER,7300021,1,4,0*0f\\r\\n")}));
    QCOMPARE(m_model->index(0, TrafficColumn::Time).data(Qt::ToolTipRole).toString(),
             QStringLiteral("2024-05-06 07:08:09.123456"));
    const QString toolTip = m_model->index(0, TrafficColumn::Fields).data(Qt::ToolTipRole).toString();
    QVERIFY2(toolTip.contains(QLatin1String("CRC calculation failed")), qPrintable(toolTip));
}

void TestTraffic::aToolTipShowsEachCharacter_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("a quote") << QStringLiteral("a\"b");
    QTest::newRow("a tag") << QStringLiteral("<b>");
    QTest::newRow("a reference") << QStringLiteral("&quot;");
}

void TestTraffic::aToolTipShowsEachCharacter()
{
    QFETCH(QString, text);
    const QString payload = framed(QStringLiteral("PX,") + text);
    m_model->append(sent(acm0, payload));
    m_model->append(received(acm0, payload)); // the parser refuses this payload, so its tool tip has a second line
    m_model->flush();
    for (int row = 0; row < 2; ++row) {
        const QString toolTip = m_model->index(row, TrafficColumn::Fields).data(Qt::ToolTipRole).toString();
        QVERIFY(Qt::mightBeRichText(toolTip)); // otherwise QToolTip would not show the text as HTML
        QTextDocument document;
        document.setHtml(toolTip);
        const QStringList lines = document.toPlainText().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), row + 1);
        QCOMPARE(lines.first(), JwTools::printable(payload));
    }
}

void TestTraffic::theOldestRowsGo()
{
    const int more = 500;
    for (int i = 0; i < TrafficModel::maxRows - 10; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    for (int i = 0; i < more; ++i)
        m_model->append(received(acm1, numbered(TrafficModel::maxRows - 10 + i)));
    m_model->flush();
    QCOMPARE(m_model->rowCount(), TrafficModel::maxRows);
    QCOMPARE(m_model->record(0).payload, numbered(more - 10));
    QCOMPARE(m_model->record(TrafficModel::maxRows - 1).payload, numbered(TrafficModel::maxRows - 10 + more - 1));
}

void TestTraffic::aBurstLargerThanTheTableLeavesItsEnd()
{
    const int count = TrafficModel::maxRows + 7;
    for (int i = 0; i < count; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QCOMPARE(m_model->rowCount(), TrafficModel::maxRows);
    QCOMPARE(m_model->record(TrafficModel::maxRows - 1).payload, numbered(count - 1));
}

void TestTraffic::clearEmptiesTheTable()
{
    addSamples();
    m_model->append(received(acm0, version)); // not in the table yet, but "clear" must drop it
    action("clear")->trigger();
    QCOMPARE(m_model->rowCount(), 0);
    QCOMPARE(m_table->model()->rowCount(), 0);
    m_model->append(received(acm1, information));
    QTRY_COMPARE(payloads().size(), 1);
}

void TestTraffic::progressOfASentPayload()
{
    addSamples();
    const QModelIndex progress = m_model->index(2, TrafficColumn::Progress);
    QCOMPARE(progress.data().toString(), QStringLiteral("waiting"));
    QSignalSpy changed(m_model.get(), &QAbstractItemModel::dataChanged);
    m_model->markTaken(acm0, 7);
    QCOMPARE(progress.data().toString(), QStringLiteral("taken"));
    m_model->markTransferred(acm0, 7);
    QCOMPARE(progress.data().toString(), QStringLiteral("transferred"));
    QCOMPARE(changed.size(), 2);
    QCOMPARE(changed[0][0].toModelIndex(), progress);
    QCOMPARE(m_model->index(0, TrafficColumn::Progress).data().toString(), QString());
}

void TestTraffic::progressOfAPayloadThatIsNoRowYet()
{
    m_model->append(sent(acm0, query, 7));
    m_model->markTransferred(acm0, 7);
    m_model->flush();
    QCOMPARE(m_model->record(0).transfer, Transfer::Transferred);
}

void TestTraffic::progressNeverGoesBack()
{
    m_model->append(sent(acm0, query, 7));
    m_model->markTransferred(acm0, 7);
    m_model->markTaken(acm0, 7);
    m_model->flush();
    QCOMPARE(m_model->record(0).transfer, Transfer::Transferred);
}

void TestTraffic::progressOfABoardThatCameBack()
{
    m_model->append(sent(acm0, query, 1));
    m_model->append(sent(acm1, query, 1));
    m_model->append(sent(acm0, query, 1));
    m_model->markTaken(acm0, 1);
    m_model->flush();
    QCOMPARE(columnTexts(m_model.get(), TrafficColumn::Progress),
             QStringList({QStringLiteral("waiting"), QStringLiteral("waiting"), QStringLiteral("taken")}));
}

void TestTraffic::progressIsToldOfTheNewestOfAnId()
{
    for (uint id = 1; id <= 1001; ++id)
        m_model->append(sent(acm0, query, id));
    m_model->markTaken(acm0, 1);
    m_model->markTaken(acm0, 2);
    m_model->flush();
    QCOMPARE(m_model->record(0).transfer, Transfer::Waiting); // markTaken() reaches only the newest 1000 payloads
    QCOMPARE(m_model->record(1).transfer, Transfer::Taken);
}

void TestTraffic::progressOfUnknownPayloadsIsIgnored()
{
    addSamples();
    m_model->markTransferred(acm0, 8);
    m_model->markTransferred(acm1, 7);
    QCOMPARE(m_model->record(2).transfer, Transfer::Waiting);
    m_model->clear();
    m_model->markTransferred(acm0, 7);
    QCOMPARE(m_model->rowCount(), 0);
}

void TestTraffic::whatABoardSendsComesIn()
{
    drainReceiveBuffer();
    ScriptedDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    const BoardTraffic traffic({acm0, JwDevice::BoardA, &communicator}, m_model.get());
    device.deliver((version + information).toLatin1());
    device.deliver(version.toLatin1());
    QTRY_COMPARE(m_model->rowCount(), 3);
    QCOMPARE(columnTexts(m_model.get(), TrafficColumn::Identifier),
             QStringList({QStringLiteral("PJWVER"), QStringLiteral("PTJWRD"), QStringLiteral("PJWVER")}));
    QCOMPARE(columnTexts(m_model.get(), TrafficColumn::Id).last(), QStringLiteral("4"));
    QString rest;
    QVERIFY(!communicator.readPayload(rest));
}

void TestTraffic::whatCameBeforeComesIn()
{
    drainReceiveBuffer();
    ScriptedDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    device.deliver((version + information).toLatin1());
    const BoardTraffic traffic({acm0, JwDevice::BoardA, &communicator}, m_model.get());
    QTRY_COMPARE(m_model->rowCount(), 2);
    QCOMPARE(m_model->record(0).payload, version);
    QCOMPARE(m_model->record(1).payload, information);
}

void TestTraffic::transferredIsMarked()
{
    ScriptedDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    const BoardTraffic traffic({acm0, JwDevice::BoardA, &communicator}, m_model.get());
    const uint id = communicator.writePayload(query);
    m_model->append(sent(acm0, query, id));
    device.reportWritten(query.size());
    m_model->flush();
    QCOMPARE(m_model->record(0).transfer, Transfer::Transferred);
}

void TestTraffic::aBoardMayGo()
{
    ScriptedDevice device;
    auto communicator = std::make_unique<JwDevice::Communicator>();
    communicator->setIODevice(&device);
    const BoardTraffic traffic({acm0, JwDevice::BoardA, communicator.get()}, m_model.get());
    device.deliver(version.toLatin1());
    communicator.reset();
    device.deliver(version.toLatin1());
    QTRY_COMPARE(m_model->rowCount(), 1);
}

void TestTraffic::aBoardMayGoBefore()
{
    const BoardTraffic traffic({acm0, JwDevice::BoardA, nullptr}, m_model.get());
    m_model->flush();
    QCOMPARE(m_model->rowCount(), 0);
}

void TestTraffic::filtersByPort()
{
    addSamples();
    choose("port", acm1);
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Port), QStringList({acm1, acm1}));
}

void TestTraffic::filterByPortFollowsTheBoard()
{
    const auto addRecord = [this](const QString &port, const QString &board) {
        TrafficRecord record = received(port, framed(QStringLiteral("PA")));
        record.board = board;
        m_model->append(record);
    };
    addRecord(acm0, QStringLiteral("S1:1.0"));
    addRecord(acm0, QStringLiteral("S2:1.0"));
    m_model->flush();
    const auto *box = m_view->findChild<QComboBox *>(QStringLiteral("port"));
    QTRY_COMPARE(box->count(), 3);
    QCOMPARE(box->itemText(1), acm0 + QStringLiteral(" (S1:1.0)"));
    QCOMPARE(box->itemText(2), acm0 + QStringLiteral(" (S2:1.0)"));
    addRecord(acm1, QStringLiteral("S1:1.0"));
    m_model->flush();
    QTRY_COMPARE(box->itemText(1), acm1);
    QCOMPARE(box->itemText(2), acm0);
    QCOMPARE(box->count(), 3);
    choose("port", acm1);
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Port), QStringList({acm0, acm1}));
}

void TestTraffic::filterByPortKeepsTheNewestBoards()
{
    const auto addBoards = [this](int first, int last) {
        for (int i = first; i <= last; ++i) {
            TrafficRecord record = received(acm0, framed(QStringLiteral("PA")));
            record.board = QStringLiteral("S%1:1.0").arg(i);
            m_model->append(record);
        }
        m_model->flush();
    };
    auto *box = m_view->findChild<QComboBox *>(QStringLiteral("port"));
    addBoards(1, 1);
    QTRY_COMPARE(box->count(), 2);
    box->setCurrentIndex(1);
    addBoards(2, 300);
    QTRY_COMPARE(box->itemData(box->count() - 1).toString(), QStringLiteral("S300:1.0"));
    QCOMPARE(box->count(), 201); // "all" and 200 boards
    QCOMPARE(box->currentData().toString(), QStringLiteral("S1:1.0")); // the chosen board stays
    QCOMPARE(box->itemData(2).toString(), QStringLiteral("S102:1.0"));
}

void TestTraffic::filtersByDirection()
{
    addSamples();
    choose("direction", QStringLiteral("sent"));
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Way), QStringList(QStringLiteral("sent")));
    choose("direction", QStringLiteral("received"));
    QTRY_COMPARE(m_table->model()->rowCount(), 3);
}

void TestTraffic::filtersByIdentifier()
{
    addSamples();
    QTest::keyClicks(edit("identifier"), QStringLiteral("ptj"));
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Identifier), QStringList(QStringLiteral("PTJWRD")));
}

void TestTraffic::filtersByText()
{
    addSamples();
    QTest::keyClick(m_table, Qt::Key_F, Qt::ControlModifier);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("ctrl,3"));
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Identifier), QStringList(QStringLiteral("PTJWRD")));
}

void TestTraffic::filtersTogether()
{
    addSamples();
    QTest::keyClicks(edit("identifier"), QStringLiteral("PJWVER"));
    choose("direction", QStringLiteral("received"));
    choose("port", acm1);
    QTRY_COMPARE(columnTexts(m_table->model(), TrafficColumn::Checksum), QStringList(QStringLiteral("bad")));
}

void TestTraffic::escapeTakesTheFilterAway()
{
    addSamples();
    choose("port", acm1);
    QTest::keyClicks(edit("text"), QStringLiteral("nowhere"));
    QTRY_COMPARE(m_table->model()->rowCount(), 0);
    QTest::keyClick(edit("text"), Qt::Key_Escape);
    QTRY_COMPARE(m_table->model()->rowCount(), 4);
}

void TestTraffic::filtersNewPayloads()
{
    addSamples();
    choose("port", acm1);
    QTRY_COMPARE(m_table->model()->rowCount(), 2);
    m_model->append(received(acm0, version));
    m_model->append(received(acm1, version));
    m_model->flush();
    QTRY_COMPARE(m_table->model()->rowCount(), 3);
    QCOMPARE(m_model->rowCount(), 6);
}

void TestTraffic::aFilterOfALargeTableIsComplete()
{
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QTRY_COMPARE(m_table->model()->rowCount(), TrafficModel::maxRows);
    edit("text")->setText(QStringLiteral(",999"));
    // The numbers that begin with 999: 999, 9990 to 9999, 99900 to 99999.
    QTRY_COMPARE(m_table->model()->rowCount(), 111);
    QCOMPARE(payloads().first(), JwTools::printable(numbered(999)));
    QCOMPARE(payloads().last(), JwTools::printable(numbered(99999)));
}

void TestTraffic::rowsGoUnderAFilter()
{
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        m_model->append(received(i % 2 ? acm1 : acm0, numbered(i)));
    m_model->flush();
    choose("port", acm1);
    QTRY_COMPARE(m_table->model()->rowCount(), TrafficModel::maxRows / 2);
    for (int i = 0; i < 100; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QCOMPARE(m_table->model()->rowCount(), TrafficModel::maxRows / 2 - 50);
    QCOMPARE(m_table->model()->index(0, TrafficColumn::Raw).data().toString(), JwTools::printable(numbered(101)));
}

void TestTraffic::progressIsToldUnderAFilter()
{
    addSamples();
    QAbstractItemModel *const shown = m_table->model();
    QSignalSpy changed(shown, &QAbstractItemModel::dataChanged);
    choose("direction", QStringLiteral("received"));
    QTRY_COMPARE(shown->rowCount(), 3);
    m_model->markTaken(acm0, 7);
    QCOMPARE(changed.size(), 0);
    choose("direction", QStringLiteral("sent"));
    QTRY_COMPARE(shown->rowCount(), 1);
    m_model->markTransferred(acm0, 7);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed[0][0].toModelIndex(), shown->index(0, TrafficColumn::Progress));
}

void TestTraffic::followsTheNewestRow()
{
    for (int i = 0; i < 200; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QTRY_COMPARE(lastWholeRow(m_table), 199);
    m_view->resize(900, 300);
    QTRY_COMPARE(lastWholeRow(m_table), 199);
}

void TestTraffic::theTopRowIsWhole()
{
    for (int i = 0; i < 200; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QTRY_COMPARE(m_table->model()->rowCount(), 200);
    int last = 199;
    for (int more = 0; more < m_table->rowHeight(0); ++more) {
        m_view->resize(900, 300 + more);
        m_table->verticalScrollBar()->setValue(50);
        m_table->scrollToBottom();
        QTRY_COMPARE(lastWholeRow(m_table), last);
        QCOMPARE(m_table->rowViewportPosition(m_table->rowAt(0)), 0);
        m_model->append(received(acm0, version));
        m_model->flush();
        ++last;
        QTRY_COMPARE(lastWholeRow(m_table), last);
        QCOMPARE(m_table->rowViewportPosition(m_table->rowAt(0)), 0);
    }
}

void TestTraffic::staysWhereItWasScrolled()
{
    for (int i = 0; i < 200; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    m_table->verticalScrollBar()->setValue(50);
    m_model->append(received(acm0, version));
    m_model->flush();
    QCOMPARE(m_table->verticalScrollBar()->value(), 50);
}

void TestTraffic::keepsItsPlaceWhileRowsGo()
{
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QTRY_COMPARE(m_table->model()->rowCount(), TrafficModel::maxRows);
    m_table->setCurrentIndex(m_table->model()->index(0, 0)); // this row is dropped below; the view must not move
    m_table->verticalScrollBar()->setValue(5000);
    const auto topPayload = [this] {
        return m_table->model()->index(m_table->rowAt(1), TrafficColumn::Raw).data().toString();
    };
    QCOMPARE(topPayload(), JwTools::printable(numbered(5000)));
    for (int i = 0; i < 3; ++i) {
        m_model->append(received(acm0, version));
        m_model->flush();
    }
    QTRY_COMPARE(topPayload(), JwTools::printable(numbered(5000)));
}

void TestTraffic::followsAgainAtTheEnd()
{
    for (int i = 0; i < 200; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    m_table->verticalScrollBar()->setValue(50);
    m_table->setFocus();
    QTest::keyClick(m_table, Qt::Key_End, Qt::ControlModifier);
    m_model->append(received(acm0, version));
    m_model->flush();
    QTRY_COMPARE(lastWholeRow(m_table), 200);
}

void TestTraffic::pauseHoldsTheTable()
{
    addSamples();
    m_view->setFocus();
    QTest::keyClick(m_table, Qt::Key_P, Qt::ControlModifier);
    QVERIFY(action("pause")->isChecked());
    m_model->append(received(acm0, version));
    m_model->flush();
    QCOMPARE(m_model->rowCount(), 5);
    QCOMPARE(m_table->model()->rowCount(), 4);
    QTRY_COMPARE(statusText(), QStringLiteral("4 of 5 payloads, paused"));
    QTest::keyClick(m_table, Qt::Key_P, Qt::ControlModifier);
    QTRY_COMPARE(m_table->model()->rowCount(), 5);
}

void TestTraffic::filtersWhilePaused()
{
    addSamples();
    action("pause")->trigger();
    m_model->append(received(acm1, version));
    m_model->flush();
    choose("port", acm1);
    QTRY_COMPARE(m_table->model()->rowCount(), 2);
    action("pause")->trigger();
    QTRY_COMPARE(m_table->model()->rowCount(), 3);
}

void TestTraffic::rawShowsThePayloadAsItIs()
{
    addSamples();
    m_view->setFocus();
    QVERIFY(m_table->isColumnHidden(TrafficColumn::Raw));
    QTest::keyClick(m_table, Qt::Key_R, Qt::ControlModifier);
    QVERIFY(!m_table->isColumnHidden(TrafficColumn::Raw));
    QVERIFY(m_table->isColumnHidden(TrafficColumn::Fields));
    QCOMPARE(payloads().first(), QStringLiteral("$PJWVER,7300021,1,4,0*0e\\r\\n"));
    QTest::keyClick(m_table, Qt::Key_R, Qt::ControlModifier);
    QVERIFY(!m_table->isColumnHidden(TrafficColumn::Fields));
}

void TestTraffic::copiesTheSelectedRows()
{
    addSamples();
    m_table->setFocus();
    m_table->selectRow(1);
    m_table->selectionModel()->select(m_table->model()->index(2, 0),
                                      QItemSelectionModel::Select | QItemSelectionModel::Rows);
    QTest::keyClick(m_table, Qt::Key_C, Qt::ControlModifier);
    const QStringList lines = QApplication::clipboard()->text().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].contains(QLatin1String("\tttyACM1\treceived\t2\tok\tPTJWRD\tsubcommand=INF")),
             qPrintable(lines[0]));
    QVERIFY2(lines[1].contains(QLatin1String("\tttyACM0\tsent\t7\tok\tPJWVER")), qPrintable(lines[1]));
}

void TestTraffic::tellsHowManyAreShown()
{
    QCOMPARE(statusText(), QStringLiteral("0 payloads"));
    addSamples();
    QCOMPARE(statusText(), QStringLiteral("4 payloads"));
    choose("port", acm1);
    QTRY_COMPARE(statusText(), QStringLiteral("2 of 4 payloads"));
}

void TestTraffic::keysReachEverything()
{
    QSet<QWidget *> reached;
    m_view->setFocus();
    QWidget *const first = QApplication::focusWidget();
    QCOMPARE(first, m_table);
    do {
        reached.insert(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    } while (QApplication::focusWidget() != first && reached.size() < 20);
    QCOMPARE(reached.size(), 9); // four filters, four tools and the table get the focus by Tab
}

void TestTraffic::savesText()
{
    const QDateTime time = QDateTime::fromString(QStringLiteral("2024-05-06T07:08:09.123"), Qt::ISODateWithMs);
    m_model->append({time.toMSecsSinceEpoch() * 1000 + 456, acm0, Direction::Received, version, 2});
    m_model->append({time.toMSecsSinceEpoch() * 1000 + 999, acm1, Direction::Sent, query, 3});
    m_model->flush();
    QCOMPARE(save(QStringLiteral("traffic.txt")),
             QStringLiteral("2024-05-06 07:08:09.123456  ttyACM0  <-  $PJWVER,7300021,1,4,0*0e\n"
                            "2024-05-06 07:08:09.123999  ttyACM1  ->  $PJWVER*0c\n"));
}

void TestTraffic::savesCsv()
{
    const QDateTime time = QDateTime::fromString(QStringLiteral("2024-05-06T07:08:09.123"), Qt::ISODateWithMs);
    m_model->append({time.toMSecsSinceEpoch() * 1000, acm0, Direction::Sent, framed(QStringLiteral("PX,a\"b")), 3});
    m_model->flush();
    QCOMPARE(
        save(QStringLiteral("traffic.CSV")),
        QStringLiteral("\"time\",\"port\",\"direction\",\"id\",\"identifier\",\"fields\",\"checksum\",\"progress\","
                       "\"payload\"\r\n"
                       "\"2024-05-06 07:08:09.123000\",\"ttyACM0\",\"sent\",\"3\",\"PX\",\"1=a\"\"b\",\"ok\","
                       "\"waiting\",\"$PX,a\"\"b*05\"\r\n"));
}

void TestTraffic::csvHasNoFormulaOfABoard_data()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("cell");
    const auto row = [](const char *name, const char *identifier, const char *cell) {
        QTest::newRow(name) << QString::fromLatin1(identifier) << QString::fromLatin1(cell);
    };
    row("equals", "=cmd|' /C calc'!A0", "\"'=cmd|' /C calc'!A0\"");
    row("plus", "+cmd|' /C calc'!A0", "\"'+cmd|' /C calc'!A0\"");
    row("minus", "-2+3", "\"'-2+3\"");
    row("at", "@SUM(A1:A2)", "\"'@SUM(A1:A2)\"");
    row("quote and equals", "=HYPERLINK(\"http://x\")", "\"'=HYPERLINK(\"\"http://x\"\")\"");
    row("tab", "\t=1+1", "\"\\x09=1+1\"");
    row("carriage return", "\r=1+1", "\"\\r=1+1\"");
    row("sign alone", "-", "\"'-\"");
    row("number and a formula in the next line", "-1\n=1+1", "\"'-1\\n=1+1\"");
    row("negative number", "-12", "\"-12\"");
    row("negative number with a fraction", "-12.50", "\"-12.50\"");
    row("number with an exponent", "+1e-3", "\"+1e-3\"");
    row("number that is none", "-1e", "\"'-1e\"");
    row("formula later on", "A=1", "\"A=1\"");
}

void TestTraffic::csvHasNoFormulaOfABoard()
{
    QFETCH(QString, identifier);
    QFETCH(QString, cell);
    m_model->append(received(acm0, framed(identifier)));
    m_model->flush();
    const QString row = save(QStringLiteral("traffic.csv")).section(QLatin1String("\r\n"), 1, 1);
    QVERIFY2(row.contains(QLatin1String("\"received\",\"2\",") + cell + QLatin1String(",\"\",\"ok\"")),
             qPrintable(row));
}

void TestTraffic::copiedRowHasNoFormulaOfABoard_data()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("cell");
    const auto row = [](const char *name, const char *identifier, const char *cell) {
        QTest::newRow(name) << QString::fromLatin1(identifier) << QString::fromLatin1(cell);
    };
    row("equals", "=cmd|' /C calc'!A0", "'=cmd|' /C calc'!A0");
    row("plus", "+cmd|' /C calc'!A0", "'+cmd|' /C calc'!A0");
    row("minus", "-2+3", "'-2+3");
    row("at", "@SUM(A1:A2)", "'@SUM(A1:A2)");
    row("tab", "\t=1+1", "\\x09=1+1");
    row("equals in quotes", "\"=1+1\"", "'\"=1+1\"");
    row("negative number", "-12", "-12");
    row("formula later on", "A=1", "A=1");
}

void TestTraffic::copiedRowHasNoFormulaOfABoard()
{
    QFETCH(QString, identifier);
    QFETCH(QString, cell);
    m_model->append(received(acm0, framed(identifier)));
    QTRY_COMPARE(m_table->model()->rowCount(), 1);
    m_table->setFocus();
    m_table->selectRow(0);
    QTest::keyClick(m_table, Qt::Key_C, Qt::ControlModifier);
    const QString row = QApplication::clipboard()->text();
    QVERIFY2(row.contains(QLatin1String("\treceived\t2\tok\t") + cell + QLatin1Char('\t')), qPrintable(row));
}

void TestTraffic::savesWhatIsShown()
{
    addSamples();
    choose("port", acm1);
    QTRY_COMPARE(m_table->model()->rowCount(), 2);
    const QString text = save(QStringLiteral("some.txt"));
    QCOMPARE(text.count(QLatin1Char('\n')), 2);
    QCOMPARE(text.count(acm1), 2);
}

void TestTraffic::savesWhatWasThereAtItsBeginning()
{
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        m_model->append(received(acm0, numbered(i)));
    m_model->flush();
    QTRY_COMPARE(m_table->model()->rowCount(), TrafficModel::maxRows);
    QSignalSpy saved(m_view.get(), &TrafficView::saved);
    const QString path = m_folder.filePath(QStringLiteral("large.txt"));
    m_view->saveTo(path);
    QVERIFY(saved.isEmpty());
    QVERIFY(!QFile::exists(path)); // no file yet: saving creates the file only when its content is complete
    m_model->clear();
    QTRY_COMPARE_WITH_TIMEOUT(saved.size(), 1, 60000);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll().count('\n'), TrafficModel::maxRows);
}

void TestTraffic::tellsWhyItCanNotSave()
{
    addSamples();
    QSignalSpy failed(m_view.get(), &TrafficView::saveFailed);
    const QString path = m_folder.filePath(QStringLiteral("nowhere/traffic.txt"));
    m_view->saveTo(path);
    QCOMPARE(failed.size(), 1);
    const QString message = failed[0][0].toString();
    QVERIFY2(message.contains(path), qPrintable(message));
    QVERIFY2(message.contains(QLatin1String("Choose another folder or name")), qPrintable(message));
    QCOMPARE(m_view->findChild<QLabel *>(QStringLiteral("message"))->text(), message);
}

SIMULATED_WINDOW_MAIN(TestTraffic)
#include "tst_jwmonitor_traffic.moc"
