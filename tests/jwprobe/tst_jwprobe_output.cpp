#include "support/programs/jwsimrun.h"
#include "support/common/simulatedportsmain.h"

#include <jwprobe/output/output.h>
#include <simulator/testbed.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

using namespace JwProbe;

class TestJwprobeOutput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonHasNoCharacterThatATerminalObeys_data();
    void jsonHasNoCharacterThatATerminalObeys();
    void jsonKeepsWhatItSays();
    void jsonOfABoardHasNoSuchCharacter_data();
    void jsonOfABoardHasNoSuchCharacter();
};

void TestJwprobeOutput::jsonHasNoCharacterThatATerminalObeys_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::newRow("control characters") << 0x00 << 0x1f;
    QTest::newRow("delete and the second control characters") << 0x7f << 0x9f;
    QTest::newRow("Arabic letter mark") << 0x061c << 0x061c;
    QTest::newRow("marks of direction") << 0x200e << 0x200f;
    QTest::newRow("embeddings and overrides") << 0x202a << 0x202e;
    QTest::newRow("isolates") << 0x2066 << 0x2069;
}

void TestJwprobeOutput::jsonHasNoCharacterThatATerminalObeys()
{
    QFETCH(int, first);
    QFETCH(int, last);
    for (int code = first; code <= last; ++code) {
        const QJsonObject object{{QString(QChar(code)), QString(QChar(code))}};
        const QString text = jsonText(object, QJsonDocument::Compact);
        QCOMPARE(text.count(QChar(code)), code == '\n' ? 1 : 0);
        QCOMPARE(QJsonDocument::fromJson(text.toUtf8()).object(), object);
    }
}

void TestJwprobeOutput::jsonKeepsWhatItSays()
{
    QString all;
    for (int code = 0; code < 0xd800; ++code)
        all += QChar(code);
    const QJsonObject object{{QStringLiteral("text"), all}, {QStringLiteral("list"), QJsonArray{all, 1, true}}};
    for (const QJsonDocument::JsonFormat format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const QString text = jsonText(object, format);
        QVERIFY(text.endsWith(QLatin1String("}\n")));
        QCOMPARE(QJsonDocument::fromJson(text.toUtf8()).object(), object);
    }
    QCOMPARE(jsonText({{QStringLiteral("text"), QStringLiteral("naïve")}}, QJsonDocument::Compact),
             QStringLiteral("{\"text\":\"naïve\"}\n"));
}

void TestJwprobeOutput::jsonOfABoardHasNoSuchCharacter_data()
{
    QTest::addColumn<QString>("mode");
    QTest::newRow("search") << QStringLiteral("--retries=0");
    QTest::newRow("--monitor") << QStringLiteral("--monitor");
}

// The library turns the byte 0x9b of a payload into the character 0x9b (Latin-1). This character begins a command for
// the terminal, so JSON must escape this character.
void TestJwprobeOutput::jsonOfABoardHasNoSuchCharacter()
{
    QFETCH(QString, mode);
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig config;
    config.kind = JwSimulator::BoardConfig::Kind::Silent;
    config.port = uniquePortName();
    JwSimulator::Board *const board = testbed.add(config);
    QVERIFY(board);
    connect(board, &JwSimulator::Board::sentenceReceived, this, [board] {
        board->send("$PJWVER,7300022\x9b"
                    "31m\x7f,1,4,0\r\n");
    });
    ProgramRun run(jwprobeProgram(), {QStringLiteral("--json"), QStringLiteral("--type=BoardA"), mode});
    run.start();
    run.write("PJWVER\n");
    if (mode == QLatin1String("--monitor")) {
        WAIT_FOR(run.output().contains("\"received\""));
        run.sendSignal(SIGTERM);
    }
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 0);
    QVERIFY2(run.output().contains("7300022\\u009b31m\\u007f"), run.output().constData());
    const QString text = QString::fromUtf8(run.output());
    for (const QChar c : text)
        QVERIFY(c == QLatin1Char('\n') || c.isPrint());
}

SIMULATED_PORTS_MAIN(TestJwprobeOutput)
#include "tst_jwprobe_output.moc"
