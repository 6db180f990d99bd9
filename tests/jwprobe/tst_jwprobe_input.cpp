#include <jwprobe/monitor/input.h>

#include <QSignalSpy>
#include <QSocketNotifier>
#include <QTest>

#include <unistd.h>

using namespace JwProbe;

class TestJwprobeInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void linesAreSplitHoweverTheyArrive();
    void theLastLineNeedsNoLineEnd();
    void atTheEndItStopsListening();
    void aLineWithoutEndIsDropped();
    void aNulDoesNotEndTheLine();

private:
    void write(const QByteArray &bytes);
    void closeWriter();

    int m_ends[2] = {-1, -1};
};

void TestJwprobeInput::init()
{
    QCOMPARE(::pipe(m_ends), 0);
}

void TestJwprobeInput::cleanup()
{
    ::close(m_ends[0]);
    closeWriter();
}

void TestJwprobeInput::write(const QByteArray &bytes)
{
    QCOMPARE(::write(m_ends[1], bytes.constData(), static_cast<std::size_t>(bytes.size())),
             static_cast<ssize_t>(bytes.size()));
}

void TestJwprobeInput::closeWriter()
{
    if (m_ends[1] >= 0)
        ::close(m_ends[1]);
    m_ends[1] = -1;
}

void TestJwprobeInput::linesAreSplitHoweverTheyArrive()
{
    Input input(m_ends[0]);
    QSignalSpy lines(&input, &Input::line);
    write("one\ntw");
    QTRY_COMPARE(lines.size(), 1);
    write("o\n\nfour\n");
    QTRY_COMPARE(lines.size(), 4);
    QCOMPARE(lines[0][0].toString(), QStringLiteral("one"));
    QCOMPARE(lines[1][0].toString(), QStringLiteral("two"));
    QCOMPARE(lines[2][0].toString(), QString());
    QCOMPARE(lines[3][0].toString(), QStringLiteral("four"));
}

void TestJwprobeInput::theLastLineNeedsNoLineEnd()
{
    Input input(m_ends[0]);
    QSignalSpy lines(&input, &Input::line);
    write("last");
    closeWriter();
    QTRY_COMPARE(lines.size(), 1);
    QCOMPARE(lines[0][0].toString(), QStringLiteral("last"));
}

void TestJwprobeInput::atTheEndItStopsListening()
{
    Input input(m_ends[0]);
    const auto *notifier = input.findChild<QSocketNotifier *>();
    QVERIFY(notifier && notifier->isEnabled());
    closeWriter();
    QTRY_VERIFY(!notifier->isEnabled());
}

void TestJwprobeInput::aLineWithoutEndIsDropped()
{
    Input input(m_ends[0]);
    QSignalSpy lines(&input, &Input::line);
    QSignalSpy tooLong(&input, &Input::tooLong);
    write(QByteArray(10000, 'x'));
    QTRY_VERIFY(tooLong.size() > 0);
    write("\nnext\n");
    QTRY_VERIFY(lines.size() > 0 && lines.last()[0].toString() == QLatin1String("next"));
}

void TestJwprobeInput::aNulDoesNotEndTheLine()
{
    Input input(m_ends[0]);
    QSignalSpy lines(&input, &Input::line);
    const QByteArray line("PJWVER\0,INF", 11);
    write(line + '\n' + line);
    closeWriter();
    QTRY_COMPARE(lines.size(), 2);
    const QString text = QStringLiteral("PJWVER") + QChar(u'\0') + QStringLiteral(",INF");
    QCOMPARE(lines[0][0].toString(), text);
    QCOMPARE(lines[1][0].toString(), text);
}

QTEST_GUILESS_MAIN(TestJwprobeInput)
#include "tst_jwprobe_input.moc"
