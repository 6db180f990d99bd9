#include "support/jwmonitor/comboboxkeys.h"
#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/log/logmodel.h>
#include <jwmonitor/log/logsink.h>
#include <jwmonitor/log/logview.h>

#include <QComboBox>
#include <QLineEdit>
#include <QTextDocument>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace JwMonitor;

/// Tests jwmonitor's view of the library's log.
class TestLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void aRecordTellsWhatItIs();
    void aToolTipShowsEachCharacter();
    void recordsOfOtherThreadsComeIn();
    void aModelMayGoWhileOthersLog();
    void recordsNobodyTakesAreBounded();
    void filtersByLevel();
    void filtersByCategory();
    void filtersByText();
    void theLevelOfTheLoggerIsShownAndSet();

private:
    void logSamples();
    void choose(const char *box, const QString &text) { chooseByKeys(m_view.get(), box, text); }
    QStringList texts() const { return columnTexts(m_view->findChild<HistoryFilter *>(), LogModel::Text); }

    std::unique_ptr<LogModel> m_model;
    std::unique_ptr<LogView> m_view;
};

void TestLog::init()
{
    loggerInstance()->clearSinks(); // removes the default sink, which writes to standard error
    loggerInstance()->setLevel(Logger::Trace);
    m_model = std::make_unique<LogModel>();
    m_view = std::make_unique<LogView>(m_model.get());
    m_view->show();
    QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
}

void TestLog::cleanup()
{
    m_view.reset();
    m_model.reset();
    loggerInstance()->setLevel(Logger::Warning);
}

void TestLog::logSamples()
{
    LOGGER_RECORD(Logger::Trace, "Communication").write("one");
    LOGGER_RECORD(Logger::Warning, nullptr).write("two");
    LOGGER_RECORD(Logger::Error, "Communication").write("three");
    QTRY_COMPARE(m_model->rowCount(), 3);
}

void TestLog::aRecordTellsWhatItIs()
{
    const int line = __LINE__ + 1;
    LOGGER_RECORD(Logger::Warning, "Communication").write("gr\xc3\xbc\xc3\x9f");
    QTRY_COMPARE(m_model->rowCount(), 1);
    QStringList cells;
    for (int column = LogModel::Level; column < LogModel::ColumnCount; ++column)
        cells << m_model->index(0, column).data().toString();
    QCOMPARE(cells,
             QStringList({QStringLiteral("Warning"), QStringLiteral("Communication"),
                          QStringLiteral("tst_jwmonitor_log.cpp:%1").arg(line), QStringLiteral("gr\u00fc\u00df")}));
    QVERIFY(qAbs(m_model->record(0).timeUs / 1000 - QDateTime::currentMSecsSinceEpoch()) < 60000);
    QVERIFY(m_model->index(0, 0).data(Qt::ToolTipRole).toString().contains(QLatin1String("aRecordTellsWhatItIs")));
}

void TestLog::aToolTipShowsEachCharacter()
{
    CuteMessageLogger(loggerInstance(), Logger::Warning, "a.cpp", 1, "void f(Map<b> &&, \"a\")").write("one");
    QTRY_COMPARE(m_model->rowCount(), 1);
    const QString toolTip = m_model->index(0, 0).data(Qt::ToolTipRole).toString();
    QVERIFY(Qt::mightBeRichText(toolTip)); // otherwise QToolTip would not show the text as HTML
    QTextDocument document;
    document.setHtml(toolTip);
    const QString text = document.toPlainText();
    QVERIFY2(text.endsWith(QLatin1String("a.cpp:1 in void f(Map<b> &&, \"a\")")), qPrintable(text));
}

void TestLog::recordsOfOtherThreadsComeIn()
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int record = 0; record < 500; ++record)
                LOGGER_RECORD(Logger::Info, nullptr).write("%d", record);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QTRY_COMPARE(m_model->rowCount(), 2000);
}

void TestLog::aModelMayGoWhileOthersLog()
{
    std::atomic<bool> end{false};
    std::thread thread([&end] {
        while (!end)
            LOGGER_RECORD(Logger::Info, nullptr).write("text");
    });
    for (int i = 0; i < 20; ++i) {
        LogModel model;
        QTRY_VERIFY(model.rowCount() > 0);
    }
    end = true;
    thread.join();
}

void TestLog::recordsNobodyTakesAreBounded()
{
    int wakes = 0;
    const auto sink = std::make_shared<LogSink>([&wakes] { ++wakes; });
    loggerInstance()->addSink(sink);
    for (int i = 0; i < LogModel::maxRows + 1000; ++i)
        LOGGER_RECORD(Logger::Info, nullptr).write("%d", i);
    QCOMPARE(wakes, 1);
    QCOMPARE(sink->take().size(), LogModel::maxRows);
    LOGGER_RECORD(Logger::Info, nullptr).write("and on");
    loggerInstance()->removeSink(sink);
    QCOMPARE(wakes, 2);
    const QVector<JwMonitor::LogRecord> records = sink->take();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().text, QStringLiteral("and on"));
}

void TestLog::filtersByLevel()
{
    logSamples();
    choose("level", QStringLiteral("Warning"));
    QTRY_COMPARE(texts(), QStringList({QStringLiteral("two"), QStringLiteral("three")}));
}

void TestLog::filtersByCategory()
{
    logSamples();
    choose("category", QStringLiteral("Communication"));
    QTRY_COMPARE(texts(), QStringList({QStringLiteral("one"), QStringLiteral("three")}));
    choose("category", QStringLiteral("None"));
    QTRY_COMPARE(texts(), QStringList(QStringLiteral("two")));
    QCOMPARE(m_view->findChild<QComboBox *>(QStringLiteral("category"))->count(), 3);
}

void TestLog::filtersByText()
{
    logSamples();
    QTest::keyClick(m_view->findChild<HistoryTable *>(), Qt::Key_F, Qt::ControlModifier);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("TW"));
    QTRY_COMPARE(texts(), QStringList(QStringLiteral("two")));
}

void TestLog::theLevelOfTheLoggerIsShownAndSet()
{
    QCOMPARE(m_view->findChild<QComboBox *>(QStringLiteral("loggerLevel"))->currentText(), QStringLiteral("Trace"));
    choose("loggerLevel", QStringLiteral("Error"));
    QVERIFY(!loggerInstance()->isEnabled(Logger::Warning));
    QVERIFY(loggerInstance()->isEnabled(Logger::Error));
    QCOMPARE(LogView(m_model.get()).findChild<QComboBox *>(QStringLiteral("loggerLevel"))->currentText(),
             QStringLiteral("Error"));
}

SIMULATED_WINDOW_MAIN(TestLog)
#include "tst_jwmonitor_log.moc"
