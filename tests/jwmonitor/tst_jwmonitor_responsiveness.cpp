#include "support/jwmonitor/lastwholerow.h"
#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/stallwatch.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/history/historytable.h>
#include <jwmonitor/plot/plotview.h>
#include <jwmonitor/send/sendpanel.h>
#include <jwmonitor/traffic/trafficmodel.h>
#include <jwmonitor/traffic/trafficview.h>

#include <QComboBox>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <cmath>

using namespace JwMonitor;

namespace {

constexpr int patienceMs = 200000; // long enough for a build with a sanitizer on a busy machine

} // namespace

/// Measures the longest time for which jwmonitor's window does not react, with a full table (100,000 rows) and 1000 new
/// payloads in each second. Prints these times. The times depend on the machine and its load, so the test fails only if
/// the window really freezes.
class TestResponsiveness : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void showsTheNewestPayloads();
    void filters();
    void plotsAll();
    void saves();

private:
    void feed();
    void addPayload();
    void letRun(int ms);
    void report(const char *what);

    TrafficModel m_model;
    TrafficView m_view{&m_model};
    PlotView m_plot{&m_model};
    SendPanel m_panel{&m_model};
    QTimer m_feeder;
    QElapsedTimer m_feeding;
    qint64 m_fed = 0;
    int m_count = 0;
    StallWatch m_watch;
};

void TestResponsiveness::initTestCase()
{
    for (QWidget *window :
         {static_cast<QWidget *>(&m_view), static_cast<QWidget *>(&m_plot), static_cast<QWidget *>(&m_panel)}) {
        window->resize(1200, 700);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window));
    }
    m_view.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&m_view));
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        addPayload();
    m_model.flush();
    auto *table = m_view.findChild<HistoryTable *>();
    QTRY_COMPARE_WITH_TIMEOUT(table->model()->rowCount(), TrafficModel::maxRows, patienceMs);
    connect(&m_feeder, &QTimer::timeout, this, &TestResponsiveness::feed);
    m_feeding.start();
    m_feeder.start(1);
}

void TestResponsiveness::feed()
{
    for (; m_fed < m_feeding.elapsed(); ++m_fed) // one payload for each elapsed millisecond
        addPayload();
}

void TestResponsiveness::addPayload()
{
    const int number = m_count++;
    const QString port = QStringLiteral("ttyACM%1").arg(number % 4);
    if (number % 100 == 0)
        m_model.append(sent(port, QStringLiteral("$PJWVER*0c\r\n"), static_cast<uint>(number)));
    else if (number % 3 == 0)
        m_model.append(received(port, QStringLiteral("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n")));
    else
        m_model.append(received(port, framed(QStringLiteral("PJWVAL,%1").arg(std::sin(number * 0.001), 0, 'f', 4))));
}

void TestResponsiveness::letRun(int ms)
{
    QTimer end;
    end.setSingleShot(true);
    QSignalSpy ended(&end, &QTimer::timeout);
    end.start(ms);
    QVERIFY(ended.wait(ms * 10));
}

void TestResponsiveness::report(const char *what)
{
    qInfo("%s: the event loop stood still for %.1f ms at most, %.1f ms of work", what, m_watch.longestMs(),
          m_watch.longestWorkMs());
    QVERIFY2(m_watch.longestWorkMs() < StallWatch::freezeMs, what);
}

void TestResponsiveness::showsTheNewestPayloads()
{
    m_watch.restart();
    letRun(3000);
    report("100000 payloads, 1000 more a second");
    QCOMPARE(m_model.rowCount(), TrafficModel::maxRows);
    auto *table = m_view.findChild<HistoryTable *>();
    QCOMPARE(lastWholeRow(table), TrafficModel::maxRows - 1);
}

void TestResponsiveness::filters()
{
    m_watch.restart();
    QTest::keyClicks(m_view.findChild<QLineEdit *>(QStringLiteral("text")), QStringLiteral("INF"));
    auto *table = m_view.findChild<HistoryTable *>();
    QTRY_VERIFY_WITH_TIMEOUT(table->model()->rowCount() > 32000 && table->model()->rowCount() < 34000, patienceMs);
    report("a filter typed");
    m_watch.restart();
    QTest::keyClick(m_view.findChild<QLineEdit *>(QStringLiteral("text")), Qt::Key_Escape);
    QTRY_COMPARE_WITH_TIMEOUT(table->model()->rowCount(), TrafficModel::maxRows, patienceMs);
    report("a filter taken away");
}

void TestResponsiveness::plotsAll()
{
    m_watch.restart();
    auto *quantity = m_plot.findChild<QComboBox *>(QStringLiteral("quantity"));
    quantity->setCurrentIndex(quantity->findText(QStringLiteral("PJWVAL 1")));
    m_plot.findChild<QComboBox *>(QStringLiteral("span"))->setCurrentText(QStringLiteral("All"));
    QCOMPARE(quantity->currentText(), QStringLiteral("PJWVAL 1"));
    letRun(2000);
    report("a field over the whole time");
}

void TestResponsiveness::saves()
{
    m_plot.hide(); // in a build with a sanitizer, a visible plot would take most of the time
    const QTemporaryDir folder;
    m_watch.restart();
    QSignalSpy saved(&m_view, &TrafficView::saved);
    QElapsedTimer time;
    time.start();
    m_view.saveTo(folder.filePath(QStringLiteral("traffic.csv")));
    QVERIFY(saved.wait(patienceMs));
    report("saving");
    qInfo("100000 payloads saved as CSV in %lld ms", time.elapsed());
}

SIMULATED_WINDOW_MAIN(TestResponsiveness)
#include "tst_jwmonitor_responsiveness.moc"
