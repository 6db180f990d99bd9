#include <logger/logger.h>

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/ostream_sink.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/common/allocationcount.h"
#include "support/common/recordsink.h"

static_assert(Logger::Trace == 0 && Logger::Debug == 1 && Logger::Info == 2);
static_assert(Logger::Warning == 3 && Logger::Error == 4 && Logger::Fatal == 5);
static_assert(int(spdlog::level::trace) == Logger::Trace && int(spdlog::level::critical) == Logger::Fatal);
static_assert(std::is_same_v<decltype(&loggerInstance), Logger *(*)()>);
static_assert(std::is_constructible_v<CuteMessageLogger, Logger *, Logger::Level, const char *, int, const char *>);
static_assert(
    std::is_constructible_v<CuteMessageLogger, Logger *, Logger::Level, const char *, int, const char *, const char *>);

namespace {

/// A sink that calls a function for every record. The sink holds no lock, so this function may itself write a record.
class CallingSink : public spdlog::sinks::sink
{
public:
    explicit CallingSink(std::function<void()> call)
        : m_call(std::move(call))
    {
    }
    void log(const spdlog::details::log_msg &) override { m_call(); }
    void flush() override { }
    void set_pattern(const std::string &) override { }
    void set_formatter(std::unique_ptr<spdlog::formatter>) override { }

private:
    std::function<void()> m_call;
};

/// A sink that counts records from several threads. A record counts as broken if it is not exactly one of two texts.
class CountingSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    std::atomic<int> count{0};
    std::atomic<int> broken{0};

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        const std::string text(message.payload.data(), message.payload.size());
        ++(text == "->  \"$PJWVER*0c\"" || text == "number 42" ? count : broken);
    }
    void flush_() override { }
};

/// Sets the level of a category while this object exists.
class CategoryLevel
{
public:
    CategoryLevel(const QString &category, Logger::Level level)
        : m_category(category)
    {
        loggerInstance()->setLevel(m_category, level);
    }
    ~CategoryLevel() { loggerInstance()->setLevel(m_category, Logger::Warning); }
    CategoryLevel(const CategoryLevel &) = delete;
    CategoryLevel &operator=(const CategoryLevel &) = delete;

private:
    const QString m_category;
};

CuteMessageLogger at(Logger::Level level, const char *category = nullptr)
{
    return CuteMessageLogger(loggerInstance(), level, "place.cpp", 7, "void place()", category);
}

class Caller
{
public:
    QByteArray signature;
    int line = 0;

    void log(const QString &text)
    {
        signature = Q_FUNC_INFO;
        line = __LINE__ + 1;
        LOGGER_RECORD(Logger::Info, "Communication").write() << text;
    }
};

struct LogsWhenDestroyed
{
    ~LogsWhenDestroyed()
    {
        at(Logger::Warning).write() << "streamed by a static destructor" << QStringLiteral("\u00e4") << 7;
        at(Logger::Warning).write("formatted by a static destructor %d", 7);
    }
};

QVector<Logger::Level> allLevels()
{
    return {Logger::Trace, Logger::Debug, Logger::Info, Logger::Warning, Logger::Error, Logger::Fatal};
}

/// Runs one task and returns the exit code. The test starts this program as a child process for each task, because a
/// new process has a new log.
int runAsChild(const char *task)
{
    if (std::strcmp(task, "defaults") == 0) {
        for (const Logger::Level level : allLevels())
            at(level).write("text of level %d", level);
        at(Logger::Warning, "Communication").write() << QStringLiteral("Gr\u00fc\u00dfe");
    } else if (std::strcmp(task, "category level only") == 0) {
        loggerInstance()->setLevel(QStringLiteral("Communication"), Logger::Trace);
        at(Logger::Info).write("below the general level");
        at(Logger::Trace, "Communication").write("at its category's level");
    } else if (std::strcmp(task, "no sinks") == 0) {
        loggerInstance()->clearSinks();
        at(Logger::Fatal).write("lost");
    } else if (std::strcmp(task, "throwing sinks") == 0) {
        loggerInstance()->clearSinks();
        loggerInstance()->addSink(std::make_shared<CallingSink>([] { throw std::runtime_error("disk full"); }));
        loggerInstance()->addSink(std::make_shared<CallingSink>([] { throw 7; }));
        at(Logger::Warning).write("text");
    } else if (std::strcmp(task, "static destructors") == 0) {
        // Constructed before the log, so it is destroyed after the log's static objects.
        static const LogsWhenDestroyed beforeTheLog;
        std::atexit([] { at(Logger::Warning).write("written at exit"); });
        at(Logger::Warning).write("written in main");
    } else {
        return 2;
    }
    std::printf("still here\n");
    return 0;
}

struct ChildResult
{
    QString out;
    QString err;
};

void runChild(const QString &task, ChildResult *result)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child"), task});
    QVERIFY2(child.waitForFinished(), qPrintable(child.errorString()));
    result->out = QString::fromUtf8(child.readAllStandardOutput());
    result->err = QString::fromUtf8(child.readAllStandardError());
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QVERIFY2(child.exitCode() == 0, qPrintable(result->err));
    QCOMPARE(result->out, QStringLiteral("still here\n"));
}

} // namespace

class TestLogger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void thereIsOneInstance();
    void startsAtWarningOnStandardError();
    void categoryLevelLeavesTheGeneralLevelAtItsStart();
    void fatalDoesNotEndTheProgram();
    void withoutSinksNothingIsWritten();
    void logsFromStaticDestructors();

    void isEnabledFromItsLevelOn_data();
    void isEnabledFromItsLevelOn();
    void categoryLevelOverridesTheGeneralLevel_data();
    void categoryLevelOverridesTheGeneralLevel();
    void categoryLevelStaysWhenTheGeneralLevelChanges();
    void categoryIsComparedAsAWhole();
    void emptyCategoryIsTheGeneralLevel();

    void everyRecordGoesToEverySink();
    void recordsBelowTheLevelGoNowhere();
    void sinkIsHeldToItsOwnLevel();
    void removedSinkGetsNoMore();
    void clearedSinksGetNoMore();
    void nullSinkIsIgnored();
    void loggerReleasesItsSinksAtItsEnd();
    void sinksOfSpdlogFormatTheRecord();

    void sinkSeesTheLevel_data();
    void sinkSeesTheLevel();
    void sinkSeesTheCategory();
    void sinkSeesTheBareFileName_data();
    void sinkSeesTheBareFileName();
    void sinkSeesThePlaceOfTheCall();
    void sinkSeesTheTextAsUtf8();

    void literalThenQuotedText();
    void itemsAreSeparatedByOneBlank();
    void trailingBlankIsLeftOut();
    void textsAreQuotedAndEscapedAsByQDebug();
    void noquoteAndNospace();
    void manipulatorsOfTextStreams();
    void recordIsWrittenWhenTheStreamEnds();
    void emptyStreamIsAnEmptyRecord();
    void formattedText();
    void emptyFormattedText();

    void disabledRecordEvaluatesNothing();
    void macroIsOneStatement();
    void allocationsAreCounted();
    void disabledRecordAllocatesNothing_data();
    void disabledRecordAllocatesNothing();

    void throwingSinkLosesOnlyItsOwnRecord();
    void throwingSinkIsReportedOnStandardError();
    void sinkMayLog();
    void sinkMayRemoveItself();
    void sinkMayChangeSinksAndLevels();
    void threadsWriteWhileSinksAndLevelsChange();
};

void TestLogger::thereIsOneInstance()
{
    QVERIFY(loggerInstance());
    QCOMPARE(loggerInstance(), loggerInstance());
}

void TestLogger::startsAtWarningOnStandardError()
{
    ChildResult child;
    runChild(QStringLiteral("defaults"), &child);
    const QStringList lines = child.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.size() == 4, qPrintable(child.err));
    QVERIFY(lines[0].endsWith(QLatin1String("text of level 3")));
    QVERIFY(lines[1].endsWith(QLatin1String("text of level 4")));
    QVERIFY(lines[2].endsWith(QLatin1String("text of level 5")));
    QVERIFY(lines[3].contains(QLatin1String("Communication")));
    QVERIFY(lines[3].endsWith(QStringLiteral("\"Gr\u00fc\u00dfe\"")));
}

void TestLogger::categoryLevelLeavesTheGeneralLevelAtItsStart()
{
    ChildResult child;
    runChild(QStringLiteral("category level only"), &child);
    const QStringList lines = child.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.size() == 1, qPrintable(child.err));
    QVERIFY(lines[0].endsWith(QLatin1String("at its category's level")));
}

void TestLogger::fatalDoesNotEndTheProgram()
{
    const LogCapture capture;
    at(Logger::Fatal).write("the worst");
    at(Logger::Info).write("and on");
    QCOMPARE(capture.sink->records.size(), 2);
    ChildResult child;
    runChild(QStringLiteral("defaults"), &child);
}

void TestLogger::withoutSinksNothingIsWritten()
{
    ChildResult child;
    runChild(QStringLiteral("no sinks"), &child);
    QCOMPARE(child.err, QString());
}

void TestLogger::logsFromStaticDestructors()
{
    ChildResult child;
    runChild(QStringLiteral("static destructors"), &child);
    const QStringList lines = child.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.size() == 4, qPrintable(child.err));
    QVERIFY(lines[0].endsWith(QLatin1String("written in main")));
    QVERIFY(lines[1].endsWith(QLatin1String("written at exit")));
    QVERIFY(lines[2].endsWith(QStringLiteral("streamed by a static destructor \"\u00e4\" 7")));
    QVERIFY(lines[3].endsWith(QLatin1String("formatted by a static destructor 7")));
}

void TestLogger::isEnabledFromItsLevelOn_data()
{
    QTest::addColumn<int>("general");
    for (const Logger::Level level : allLevels())
        QTest::newRow(QByteArray::number(level).constData()) << int(level);
}

void TestLogger::isEnabledFromItsLevelOn()
{
    QFETCH(int, general);
    const LogCapture capture(static_cast<Logger::Level>(general));
    for (const Logger::Level level : allLevels()) {
        QCOMPARE(loggerInstance()->isEnabled(level), level >= general);
        QCOMPARE(loggerInstance()->isEnabled(level, ""), level >= general);
        QCOMPARE(loggerInstance()->isEnabled(level, "a category without a level"), level >= general);
        capture.sink->records.clear();
        at(level).write("text");
        QCOMPARE(capture.sink->records.size(), level >= general ? 1 : 0);
    }
}

void TestLogger::categoryLevelOverridesTheGeneralLevel_data()
{
    QTest::addColumn<int>("general");
    QTest::addColumn<int>("own");
    QTest::newRow("more than the others") << int(Logger::Warning) << int(Logger::Trace);
    QTest::newRow("less than the others") << int(Logger::Trace) << int(Logger::Error);
    QTest::newRow("as the others") << int(Logger::Info) << int(Logger::Info);
    QTest::newRow("alone") << int(Logger::Fatal) << int(Logger::Trace);
}

void TestLogger::categoryLevelOverridesTheGeneralLevel()
{
    QFETCH(int, general);
    QFETCH(int, own);
    const LogCapture capture(static_cast<Logger::Level>(general));
    const QByteArray category = QByteArray("overriding \xc3\xa4 ") + QTest::currentDataTag();
    const CategoryLevel categoryLevel(QString::fromUtf8(category), static_cast<Logger::Level>(own));
    for (const Logger::Level level : allLevels()) {
        QCOMPARE(loggerInstance()->isEnabled(level, category.constData()), level >= own);
        QCOMPARE(loggerInstance()->isEnabled(level, "another"), level >= general);
        QCOMPARE(loggerInstance()->isEnabled(level), level >= general);
        capture.sink->records.clear();
        at(level, category.constData()).write("text");
        QCOMPARE(capture.sink->records.size(), level >= own ? 1 : 0);
    }
}

void TestLogger::categoryLevelStaysWhenTheGeneralLevelChanges()
{
    const LogCapture capture(Logger::Warning);
    loggerInstance()->setLevel(QStringLiteral("staying"), Logger::Info);
    for (const Logger::Level general : allLevels()) {
        loggerInstance()->setLevel(general);
        QVERIFY(loggerInstance()->isEnabled(Logger::Info, "staying"));
        QVERIFY(!loggerInstance()->isEnabled(Logger::Debug, "staying"));
    }
    loggerInstance()->setLevel(QStringLiteral("staying"), Logger::Fatal);
    QVERIFY(!loggerInstance()->isEnabled(Logger::Error, "staying"));
}

void TestLogger::categoryIsComparedAsAWhole()
{
    const LogCapture capture(Logger::Warning);
    const CategoryLevel categoryLevel(QStringLiteral("Traffic"), Logger::Trace);
    QVERIFY(loggerInstance()->isEnabled(Logger::Trace, "Traffic"));
    for (const char *other : {"traffic", "Traffi", "RawTraffic", "Traffic ", "Traffic.tx"})
        QVERIFY2(!loggerInstance()->isEnabled(Logger::Trace, other), other);
}

void TestLogger::emptyCategoryIsTheGeneralLevel()
{
    const LogCapture capture(Logger::Warning);
    loggerInstance()->setLevel(QString(), Logger::Info);
    QVERIFY(loggerInstance()->isEnabled(Logger::Info));
    QVERIFY(loggerInstance()->isEnabled(Logger::Info, "a category without a level"));
    QVERIFY(!loggerInstance()->isEnabled(Logger::Debug));
}

void TestLogger::everyRecordGoesToEverySink()
{
    const LogCapture capture;
    const auto second = std::make_shared<RecordSink>();
    loggerInstance()->addSink(second);
    for (const Logger::Level level : allLevels())
        at(level, "Communication").write("text %d", level);
    loggerInstance()->removeSink(second);
    QCOMPARE(capture.sink->records.size(), 6);
    QCOMPARE(second->records.size(), 6);
    for (int i = 0; i < 6; ++i) {
        QCOMPARE(capture.sink->records[i].text, QStringLiteral("text %1").arg(i));
        QCOMPARE(second->records[i].text, QStringLiteral("text %1").arg(i));
    }
}

void TestLogger::recordsBelowTheLevelGoNowhere()
{
    const LogCapture capture(Logger::Warning);
    at(Logger::Info).write("formatted");
    at(Logger::Info).write() << "streamed";
    QVERIFY(capture.sink->records.isEmpty());
    at(Logger::Warning).write() << "streamed";
    QCOMPARE(capture.sink->records.size(), 1);
}

void TestLogger::sinkIsHeldToItsOwnLevel()
{
    const LogCapture capture;
    const auto quiet = std::make_shared<RecordSink>();
    quiet->set_level(spdlog::level::err);
    const auto silent = std::make_shared<RecordSink>();
    silent->set_level(spdlog::level::off);
    loggerInstance()->addSink(quiet);
    loggerInstance()->addSink(silent);
    for (const Logger::Level level : allLevels())
        at(level).write("text");
    loggerInstance()->removeSink(quiet);
    loggerInstance()->removeSink(silent);
    QCOMPARE(capture.sink->records.size(), 6);
    QCOMPARE(quiet->records.size(), 2);
    QCOMPARE(quiet->records[0].level, Logger::Error);
    QCOMPARE(quiet->records[1].level, Logger::Fatal);
    QVERIFY(silent->records.isEmpty());
}

void TestLogger::removedSinkGetsNoMore()
{
    const LogCapture capture;
    const auto removed = std::make_shared<RecordSink>();
    loggerInstance()->addSink(removed);
    at(Logger::Info).write("both");
    loggerInstance()->removeSink(removed);
    loggerInstance()->removeSink(removed); // no effect, because the sink is already removed
    at(Logger::Info).write("one");
    QCOMPARE(removed->records.size(), 1);
    QCOMPARE(capture.sink->records.size(), 2);
    QCOMPARE(removed.use_count(), 1L);
}

void TestLogger::clearedSinksGetNoMore()
{
    const LogCapture capture;
    const auto second = std::make_shared<RecordSink>();
    loggerInstance()->addSink(second);
    loggerInstance()->clearSinks();
    at(Logger::Fatal).write("nobody hears this");
    QVERIFY(capture.sink->records.isEmpty());
    QVERIFY(second->records.isEmpty());
    loggerInstance()->addSink(second);
    at(Logger::Fatal).write("heard");
    QCOMPARE(second->records.size(), 1);
    loggerInstance()->clearSinks();
}

void TestLogger::nullSinkIsIgnored()
{
    const LogCapture capture;
    loggerInstance()->addSink(nullptr);
    at(Logger::Info).write("text");
    loggerInstance()->removeSink(nullptr);
    QCOMPARE(capture.sink->records.size(), 1);
}

void TestLogger::loggerReleasesItsSinksAtItsEnd()
{
    const auto sink = std::make_shared<RecordSink>();
    {
        Logger logger;
        logger.clearSinks();
        logger.addSink(sink);
        CuteMessageLogger(&logger, Logger::Warning, "file", 1, "f").write("text");
    }
    QCOMPARE(sink->records.size(), 1);
    QCOMPARE(sink.use_count(), 1L);
}

void TestLogger::sinksOfSpdlogFormatTheRecord()
{
    const LogCapture capture;
    std::ostringstream stream;
    const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(stream);
    sink->set_pattern("%l|%n|%s|%#|%!|%v");
    loggerInstance()->addSink(sink);
    CuteMessageLogger(loggerInstance(), Logger::Error, "/home/somebody/device/communicator.cpp", 12, "void f(int)",
                      "Communication")
            .write()
        << "-> " << QStringLiteral("$PJWVER*0c");
    loggerInstance()->removeSink(sink);
    QCOMPARE(QByteArray::fromStdString(stream.str()),
             QByteArray("error|Communication|communicator.cpp|12|void f(int)|->  \"$PJWVER*0c\"\n"));
}

void TestLogger::sinkSeesTheLevel_data()
{
    isEnabledFromItsLevelOn_data();
}

void TestLogger::sinkSeesTheLevel()
{
    QFETCH(int, general);
    const LogCapture capture;
    const auto level = static_cast<Logger::Level>(general);
    at(level).write("formatted");
    at(level).write() << "streamed";
    QCOMPARE(capture.sink->records.size(), 2);
    QCOMPARE(capture.sink->records[0].level, level);
    QCOMPARE(capture.sink->records[1].level, level);
}

void TestLogger::sinkSeesTheCategory()
{
    const LogCapture capture;
    at(Logger::Info).write("none");
    at(Logger::Info, "").write("empty");
    at(Logger::Info, "RawCommunication").write("one");
    at(Logger::Info, "\xc3\xa4").write("beyond ASCII");
    QCOMPARE(capture.sink->records.size(), 4);
    QCOMPARE(capture.sink->records[0].category, QByteArray(""));
    QCOMPARE(capture.sink->records[1].category, QByteArray(""));
    QCOMPARE(capture.sink->records[2].category, QByteArray("RawCommunication"));
    QCOMPARE(capture.sink->records[3].category, QByteArray("\xc3\xa4"));
}

void TestLogger::sinkSeesTheBareFileName_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("bare") << QByteArray("communicator.cpp") << QByteArray("communicator.cpp");
    QTest::newRow("folders") << QByteArray("/home/a.b/device/communicator.cpp") << QByteArray("communicator.cpp");
    QTest::newRow("relative") << QByteArray("../device/communicator.cpp") << QByteArray("communicator.cpp");
    QTest::newRow("backslashes") << QByteArray("C:\\device\\communicator.cpp") << QByteArray("communicator.cpp");
    QTest::newRow("empty") << QByteArray("") << QByteArray("");
    QTest::newRow("none") << QByteArray() << QByteArray("");
}

void TestLogger::sinkSeesTheBareFileName()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, name);
    const LogCapture capture;
    CuteMessageLogger(loggerInstance(), Logger::Info, file.isNull() ? nullptr : file.constData(), 1, "f").write("text");
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].file, name);
}

void TestLogger::sinkSeesThePlaceOfTheCall()
{
    const LogCapture capture;
    Caller caller;
    caller.log(QStringLiteral("text"));
    QCOMPARE(capture.sink->records.size(), 1);
    const LogRecord &record = capture.sink->records[0];
    QCOMPARE(record.level, Logger::Info);
    QCOMPARE(record.category, QByteArray("Communication"));
    QCOMPARE(record.file, QByteArray("tst_logger.cpp"));
    QCOMPARE(record.line, caller.line);
    QCOMPARE(record.function, caller.signature);
    QVERIFY2(record.function.contains("Caller::log(const QString"), record.function.constData());
}

void TestLogger::sinkSeesTheTextAsUtf8()
{
    const LogCapture capture;
    std::ostringstream stream;
    const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(stream);
    sink->set_pattern("%v");
    loggerInstance()->addSink(sink);
    at(Logger::Info).write() << QStringLiteral("\u00e4\u20ac");
    at(Logger::Info).write().noquote() << QStringLiteral("\U0001F600");
    at(Logger::Info).write("%s", "\xc3\xa4\xe2\x82\xac");
    at(Logger::Info).write("\xc3\xa4 literal");
    loggerInstance()->removeSink(sink);
    QCOMPARE(QByteArray::fromStdString(stream.str()),
             QByteArray("\"\xc3\xa4\xe2\x82\xac\"\n\xf0\x9f\x98\x80\n\xc3\xa4\xe2\x82\xac\n\xc3\xa4 literal\n"));
}

void TestLogger::literalThenQuotedText()
{
    const LogCapture capture;
    at(Logger::Trace, "Communication").write() << "-> " << QStringLiteral("$PJWVER*0c");
    at(Logger::Trace, "Communication").write() << " <- " << QStringLiteral("$PJWVER*0c");
    at(Logger::Error).write() << "Build failed: " << QStringLiteral("No formatter found");
    QCOMPARE(capture.sink->records.size(), 3);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("->  \"$PJWVER*0c\""));
    QCOMPARE(capture.sink->records[1].text, QStringLiteral(" <-  \"$PJWVER*0c\""));
    QCOMPARE(capture.sink->records[2].text, QStringLiteral("Build failed:  \"No formatter found\""));
}

void TestLogger::itemsAreSeparatedByOneBlank()
{
    const LogCapture capture;
    at(Logger::Info).write() << 1 << -2 << 3u << 1.5 << true << 'c' << QChar(u'd') << QLatin1String("text")
                             << QByteArray("bytes") << QStringList{QStringLiteral("a"), QStringLiteral("b")};
    QCOMPARE(capture.sink->records.size(), 1);
    QString list; // Qt 6 writes the list as "QList(...)"
    QDebug(&list).nospace() << QStringList{QStringLiteral("a"), QStringLiteral("b")};
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("1 -2 3 1.5 true c 'd' \"text\" \"bytes\" ") + list);
}

void TestLogger::trailingBlankIsLeftOut()
{
    const LogCapture capture;
    at(Logger::Info).write() << "one";
    at(Logger::Info).write() << "own blank ";
    at(Logger::Info).write() << ""
                             << "";
    QCOMPARE(capture.sink->records.size(), 3);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("one"));
    // Only the blank that QDebug adds at the end is removed. A blank at the end of the caller's text stays.
    QCOMPARE(capture.sink->records[1].text, QStringLiteral("own blank "));
    QCOMPARE(capture.sink->records[2].text, QStringLiteral(" "));
}

void TestLogger::textsAreQuotedAndEscapedAsByQDebug()
{
    const LogCapture capture;
    at(Logger::Info).write() << QStringLiteral("a\"b\\c\r\n\t") << QString();
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("\"a\\\"b\\\\c\\r\\n\\t\" \"\""));
}

void TestLogger::noquoteAndNospace()
{
    const LogCapture capture;
    at(Logger::Info).write().noquote() << "a" << QStringLiteral("b") << "c";
    at(Logger::Info).write().nospace() << "a" << QStringLiteral("b") << 1 << "c ";
    at(Logger::Info).write().nospace().noquote() << "a" << QStringLiteral("b") << 1;
    at(Logger::Info).write().noquote().quote().nospace().space() << "a" << QStringLiteral("b");
    QCOMPARE(capture.sink->records.size(), 4);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("a b c"));
    QCOMPARE(capture.sink->records[1].text, QStringLiteral("a\"b\"1c "));
    QCOMPARE(capture.sink->records[2].text, QStringLiteral("ab1"));
    QCOMPARE(capture.sink->records[3].text.trimmed(), QStringLiteral("a \"b\""));
}

void TestLogger::manipulatorsOfTextStreams()
{
    const LogCapture capture;
    at(Logger::Info).write().nospace() << Qt::hex << 255 << Qt::showbase << 255 << Qt::dec << qSetFieldWidth(4) << 7;
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("ff0xff   7"));
}

void TestLogger::recordIsWrittenWhenTheStreamEnds()
{
    const LogCapture capture;
    {
        auto stream = at(Logger::Info, "Communication").write();
        stream << "one";
        stream << 2;
        QVERIFY(capture.sink->records.isEmpty());
    }
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("one 2"));
    QCOMPARE(capture.sink->records[0].category, QByteArray("Communication"));
    QCOMPARE(capture.sink->records[0].line, 7);
}

void TestLogger::emptyStreamIsAnEmptyRecord()
{
    const LogCapture capture;
    at(Logger::Info).write();
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].text, QString());
}

void TestLogger::formattedText()
{
    const LogCapture capture;
    at(Logger::Info).write("no arguments");
    at(Logger::Info).write("%d of %u: %s, %c, 0x%02x, %.2f, 100%%", -1, 2u, "text", 'c', 12, 1.5);
    at(Logger::Info).write("kept as it is: -> ");
    at(Logger::Info).write("%s", "%d %s %n {}");
    at(Logger::Info).write("%s", std::string(5000, 'x').c_str());
    QCOMPARE(capture.sink->records.size(), 5);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("no arguments"));
    QCOMPARE(capture.sink->records[1].text, QStringLiteral("-1 of 2: text, c, 0x0c, 1.50, 100%"));
    QCOMPARE(capture.sink->records[2].text, QStringLiteral("kept as it is: -> "));
    QCOMPARE(capture.sink->records[3].text, QStringLiteral("%d %s %n {}"));
    QCOMPARE(capture.sink->records[4].text, QString(5000, QLatin1Char('x')));
}

void TestLogger::emptyFormattedText()
{
    const LogCapture capture;
    at(Logger::Info).write("%s", "");
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(capture.sink->records[0].text, QString());
}

void TestLogger::disabledRecordEvaluatesNothing()
{
    const LogCapture capture(Logger::Warning);
    int evaluated = 0;
    LOGGER_RECORD(Logger::Info, nullptr).write() << ++evaluated;
    LOGGER_RECORD(Logger::Info, nullptr).write("%d", ++evaluated);
    QCOMPARE(evaluated, 0);
    QVERIFY(capture.sink->records.isEmpty());
    LOGGER_RECORD(Logger::Warning, nullptr).write() << ++evaluated;
    LOGGER_RECORD(Logger::Warning, nullptr).write("%d", ++evaluated);
    QCOMPARE(evaluated, 2);
    QCOMPARE(capture.sink->records.size(), 2);
}

void TestLogger::macroIsOneStatement()
{
    const LogCapture capture;
    bool otherwise = false;
    if (capture.sink->records.isEmpty())
        LOGGER_RECORD(Logger::Info, nullptr).write() << "then";
    else
        otherwise = true;
    QVERIFY(!otherwise);
    for (int i = 0; i < 3; ++i)
        LOGGER_RECORD(Logger::Info, nullptr).write("%d", i);
    QCOMPARE(capture.sink->records.size(), 4);
}

void TestLogger::allocationsAreCounted()
{
    const LogCapture capture;
    long before = allocationCount();
    const QString text(100, QLatin1Char('x')); // Qt's library calls malloc() here; the counter must see that call
    QCOMPARE(allocationCount() - before, 1L);
    before = allocationCount();
    const auto pointer = std::make_shared<RecordSink>(); // this program calls operator new here
    QVERIFY(allocationCount() > before);
    before = allocationCount();
    at(Logger::Info).write() << text; // the logger's library calls malloc() here
    QVERIFY(allocationCount() > before);
}

void TestLogger::disabledRecordAllocatesNothing_data()
{
    QTest::addColumn<int>("general");
    QTest::addColumn<int>("own");
    QTest::newRow("everything is disabled") << int(Logger::Fatal) << int(Logger::Fatal);
    QTest::newRow("others are enabled, the category is not") << int(Logger::Trace) << int(Logger::Fatal);
}

void TestLogger::disabledRecordAllocatesNothing()
{
    QFETCH(int, general);
    QFETCH(int, own);
    const LogCapture capture(static_cast<Logger::Level>(general));
    const CategoryLevel categoryLevel(QStringLiteral("a category with a long name"), static_cast<Logger::Level>(own));
    const QString text = QStringLiteral("$PJWVER*0c").repeated(10);
    const char *category = "a category with a long name";

    const long before = allocationCount();
    at(Logger::Error, category).write() << "-> " << text << 42 << 1.5 << Qt::hex << true;
    at(Logger::Error, category).write().nospace().noquote().space().quote() << text;
    at(Logger::Error, category).write("%s %d", "text", 42);
    LOGGER_RECORD(Logger::Error, category).write() << text.toUpper();
    const bool enabled = loggerInstance()->isEnabled(Logger::Error, category);
    const long after = allocationCount();

    QCOMPARE(after - before, 0L);
    QVERIFY(!enabled);
    QVERIFY(capture.sink->records.isEmpty());
}

void TestLogger::throwingSinkLosesOnlyItsOwnRecord()
{
    const LogCapture capture;
    const auto last = std::make_shared<RecordSink>();
    loggerInstance()->addSink(std::make_shared<CallingSink>([] { throw std::runtime_error("disk full"); }));
    loggerInstance()->addSink(std::make_shared<CallingSink>([] { throw 7; }));
    loggerInstance()->addSink(last);
    for (int i = 0; i < 2; ++i) {
        at(Logger::Info).write() << "streamed";
        at(Logger::Info).write("formatted");
    }
    loggerInstance()->clearSinks();
    for (const auto &sink : {capture.sink, last}) {
        QCOMPARE(sink->records.size(), 4);
        QCOMPARE(sink->records[2].text, QStringLiteral("streamed"));
        QCOMPARE(sink->records[3].text, QStringLiteral("formatted"));
    }
}

void TestLogger::throwingSinkIsReportedOnStandardError()
{
    ChildResult child;
    runChild(QStringLiteral("throwing sinks"), &child);
    const QStringList lines = child.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.size() == 2, qPrintable(child.err));
    QVERIFY(lines[0].contains(QLatin1String("log sink")) && lines[0].contains(QLatin1String("disk full")));
    QVERIFY(lines[1].contains(QLatin1String("log sink")));
}

void TestLogger::sinkMayLog()
{
    const LogCapture capture;
    bool inside = false;
    loggerInstance()->addSink(std::make_shared<CallingSink>([&inside] {
        if (inside)
            return;
        inside = true;
        at(Logger::Info).write() << "inner";
        at(Logger::Info).write("inner %d", 2);
        inside = false;
    }));
    at(Logger::Info).write("outer");
    loggerInstance()->clearSinks();
    QCOMPARE(capture.sink->records.size(), 3);
    QCOMPARE(capture.sink->records[0].text, QStringLiteral("outer"));
    QCOMPARE(capture.sink->records[1].text, QStringLiteral("inner"));
    QCOMPARE(capture.sink->records[2].text, QStringLiteral("inner 2"));
}

void TestLogger::sinkMayRemoveItself()
{
    const LogCapture capture;
    const auto last = std::make_shared<RecordSink>();
    int calls = 0;
    std::shared_ptr<spdlog::sinks::sink> self;
    self = std::make_shared<CallingSink>([&self, &calls] {
        ++calls;
        loggerInstance()->removeSink(self);
        self.reset(); // drops the test's last pointer to the sink while the sink's function still runs
        calls += 10;
    });
    loggerInstance()->addSink(self);
    loggerInstance()->addSink(last);
    at(Logger::Info).write("one");
    at(Logger::Info).write("two");
    loggerInstance()->removeSink(last);
    QCOMPARE(calls, 11);
    QCOMPARE(capture.sink->records.size(), 2);
    QCOMPARE(last->records.size(), 2);
}

void TestLogger::sinkMayChangeSinksAndLevels()
{
    const LogCapture capture;
    const CategoryLevel categoryLevel(QStringLiteral("changed by a sink"), Logger::Trace);
    const auto added = std::make_shared<RecordSink>();
    bool enabled = true;
    loggerInstance()->addSink(std::make_shared<CallingSink>([&added, &enabled] {
        loggerInstance()->clearSinks();
        loggerInstance()->addSink(added);
        loggerInstance()->setLevel(Logger::Error);
        loggerInstance()->setLevel(QStringLiteral("changed by a sink"), Logger::Fatal);
        enabled = loggerInstance()->isEnabled(Logger::Warning);
    }));
    at(Logger::Info).write("one");
    at(Logger::Info).write("two");
    at(Logger::Error, "changed by a sink").write("three");
    at(Logger::Error).write("four");
    loggerInstance()->removeSink(added);
    QCOMPARE(enabled, false);
    QCOMPARE(capture.sink->records.size(), 1);
    QCOMPARE(added->records.size(), 1);
    QCOMPARE(added->records[0].text, QStringLiteral("four"));
}

void TestLogger::threadsWriteWhileSinksAndLevelsChange()
{
    constexpr int threadCount = 4;
    constexpr int recordCount = 500;
    const LogCapture capture(Logger::Warning);
    loggerInstance()->clearSinks();
    const auto steady = std::make_shared<CountingSink>();
    const auto passing = std::make_shared<CountingSink>();
    loggerInstance()->addSink(steady);
    const CategoryLevel categoryLevel(QStringLiteral("changing"), Logger::Trace);

    std::atomic<int> running{threadCount};
    std::vector<std::thread> writers;
    for (int i = 0; i < threadCount; ++i) {
        writers.emplace_back([&running] {
            for (int record = 0; record < recordCount; ++record) {
                LOGGER_RECORD(Logger::Warning, "steady").write() << "-> " << QStringLiteral("$PJWVER*0c");
                LOGGER_RECORD(Logger::Fatal, nullptr).write("number %d", 42);
                at(Logger::Trace, "never enabled").write() << "lost";
            }
            --running;
        });
    }
    do {
        loggerInstance()->addSink(passing);
        loggerInstance()->setLevel(Logger::Debug);
        loggerInstance()->setLevel(QStringLiteral("changing"), Logger::Fatal);
        loggerInstance()->removeSink(passing);
        loggerInstance()->setLevel(QStringLiteral("changing"), Logger::Trace);
        loggerInstance()->setLevel(Logger::Warning);
    } while (running > 0);
    for (std::thread &writer : writers)
        writer.join();
    loggerInstance()->removeSink(steady);

    QCOMPARE(steady->count.load(), threadCount * recordCount * 2);
    QCOMPARE(steady->broken.load(), 0);
    QCOMPARE(passing->broken.load(), 0);
}

int main(int argc, char *argv[])
{
    if (argc == 3 && std::strcmp(argv[1], "--child") == 0)
        return runAsChild(argv[2]);
    QCoreApplication application(argc, argv);
    TestLogger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
