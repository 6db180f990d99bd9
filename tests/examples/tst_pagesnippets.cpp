// Tests the code on pages in docs/ that no example contains. The code must do what the pages say.
#include "support/common/portname.h"
#include "support/common/recordsink.h"
#include "support/common/simulatedportsmain.h"

#include <device/initializer.h>
#include <logger/logger.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QSerialPort>
#include <QSignalSpy>
#include <QtTest>

using namespace JwDevice;

class TestPageSnippets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silentBoardSaysWhatTheTestSends();
    void reportsSayWhyNothingWasFound();
    void categoryFollowsItsOwnLevel();
    void recordsOfTheApplicationReachTheLog();
};

void TestPageSnippets::silentBoardSaysWhatTheTestSends()
{
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig config;
    config.kind = JwSimulator::BoardConfig::Kind::Silent;
    config.port = uniquePortName();
    JwSimulator::Board *board = testbed.add(config);
    QObject::connect(board, &JwSimulator::Board::sentenceReceived, board, [board](const QByteArray &sentence) {
        if (sentence == "$PJWTMP*04")
            board->send("$PJWTMP,21.5*30\r\n");
    });

    QSerialPort port(config.port);
    QVERIFY(port.open(QIODevice::ReadWrite));
    port.write("$PJWTMP*04\r\n");
    QTRY_COMPARE(port.bytesAvailable(), 17);
    QCOMPARE(port.readAll(), QByteArray("$PJWTMP,21.5*30\r\n"));

    QTest::ignoreMessage(QtInfoMsg, R"(heard "$PJWTMP*04\r\n")");
    QTest::ignoreMessage(QtInfoMsg, R"(said "$PJWTMP,21.5*30\r\n")");
    const QList<JwSimulator::JournalEntry> journal = board->journal();
    for (const JwSimulator::JournalEntry &entry : journal)
        qInfo() << (entry.direction == JwSimulator::JournalEntry::Received ? "heard" : "said") << entry.bytes;
}

void TestPageSnippets::reportsSayWhyNothingWasFound()
{
    LogCapture log;
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig busy;
    busy.open = JwSimulator::BoardConfig::Open::Busy;
    busy.port = uniquePortName();
    JwSimulator::BoardConfig other;
    other.port = uniquePortName();
    QVERIFY(testbed.add({busy, other}));

    Initializer search;
    Initializer *initializer = &search;
    search.probe({BoardB});
    QTRY_COMPARE(search.portReports().last().verdict, PortReport::Silenced);

    QStringList lines;
    const QList<JwDevice::PortReport> reports = initializer->portReports();
    for (const JwDevice::PortReport &report : reports) {
        QString why = report.errorText; // says why a port was not opened, or was lost
        if (report.verdict == JwDevice::PortReport::Silenced)
            why = report.reply;
        else if (report.verdict == JwDevice::PortReport::TimedOut && !report.unreadable.isEmpty())
            why = report.unreadable;
        lines.append(QStringLiteral("%1: %2 %3").arg(report.portName, verdictName(report.verdict), why));
    }

    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0], QStringLiteral("%1: notOpened %2").arg(busy.port, search.portReports().first().errorText));
    QVERIFY(!search.portReports().first().errorText.isEmpty());
    QCOMPARE(lines[1], QStringLiteral("%1: silenced $PJWVER,7300022,1,4,0*0d").arg(other.port));
}

void TestPageSnippets::categoryFollowsItsOwnLevel()
{
    LogCapture log;

    loggerInstance()->setLevel(Logger::Error); // other categories keep only errors
    loggerInstance()->setLevel(QStringLiteral("Communication"), Logger::Trace); // this category keeps every record

    LOGGER_RECORD(Logger::Trace, "Communication").write("kept");
    LOGGER_RECORD(Logger::Warning, "RawCommunication").write("dropped");
    QCOMPARE(log.sink->records.size(), 1);
    QCOMPARE(log.sink->records.first().text, QStringLiteral("kept"));
}

void TestPageSnippets::recordsOfTheApplicationReachTheLog()
{
    LogCapture log;
    const double offset = 0.25;
    const int found = 1;
    const int wanted = 2;

    LOGGER_RECORD(Logger::Info, "Calibration").write() << "offset" << offset;
    LOGGER_RECORD(Logger::Warning, nullptr).write("%d of %d boards", found, wanted);

    QCOMPARE(log.sink->records.size(), 2);
    QCOMPARE(log.sink->records[0].text, QStringLiteral("offset 0.25"));
    QCOMPARE(log.sink->records[0].category, QByteArray("Calibration"));
    QCOMPARE(log.sink->records[1].text, QStringLiteral("1 of 2 boards"));
}

SIMULATED_PORTS_MAIN(TestPageSnippets)

#include "tst_pagesnippets.moc"
