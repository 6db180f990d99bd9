#include "support/jwmonitor/finderfixture.h"
#include "support/jwmonitor/simulatedwindowmain.h"

#include <jwmonitor/timeline/probetimeline.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/timeline/timelinecanvas.h>
#include <jwmonitor/timeline/timelineview.h>
#include <logger/logger.h>

#include <QFile>
#include <QHelpEvent>
#include <QImage>
#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolTip>
#include <QXmlStreamReader>

using namespace JwDevice;
using namespace JwMonitor;

namespace {

const QString versionQuery = QStringLiteral("$PJWVER*0c");
const QString informationRequest = QStringLiteral("$PTJWWR,INF*71");

/// Simulated boards, a BoardFinder (jwmonitor's search), and the timeline of the BoardFinder's searches.
struct TimelineFixture : FinderFixture
{
    ProbeTimeline timeline{&finder};

    TimelineLane lane(const JwSimulator::Board *board) const
    {
        for (const TimelineLane &lane : timeline.lanes()) {
            if (lane.port == board->portName())
                return lane;
        }
        return {};
    }
};

/// Emits the events of a probe of one silent port with many retry rounds.
class LongProbe
{
public:
    explicit LongProbe(BoardFinder *finder, const QString &port = QStringLiteral("ttyACM0"), bool isFirst = true)
        : m_finder(finder)
    {
        m_event.portName = port;
        if (isFirst)
            Q_EMIT m_finder->started();
        tell(PortEvent::Opened);
        tell(PortEvent::Asked);
    }

    void retry(int rounds)
    {
        for (int i = 0; i < rounds; ++i) {
            tell(PortEvent::TimedOut);
            startRound();
            tell(PortEvent::Asked);
        }
    }

    void startRound() { ++m_event.round; }

    void tell(PortEvent::Kind kind, const QString &text = QString())
    {
        m_event.kind = kind;
        m_event.nanoseconds += 1000000;
        m_event.text = kind == PortEvent::Asked ? versionQuery : text;
        Q_EMIT m_finder->portEvent(m_event);
    }

private:
    BoardFinder *const m_finder;
    PortEvent m_event;
};

QVector<PortEvent::Kind> kinds(const TimelineLane &lane)
{
    QVector<PortEvent::Kind> result;
    for (const TimelineEvent &event : lane.events)
        result.append(event.kind);
    return result;
}

bool isInOrder(const TimelineLane &lane)
{
    return std::is_sorted(lane.events.begin(), lane.events.end(),
                          [](const TimelineEvent &a, const TimelineEvent &b) { return a.ms < b.ms; });
}

/// Returns the position of an event in the only lane (the part of the picture that shows one port), in coordinates of
/// the canvas's viewport.
QPointF position(const ProbeTimeline &timeline, const TimelineView &view, int event)
{
    const TimelineCanvas *canvas = view.canvas();
    return TimelinePainter(timeline, view.palette(), canvas->font(), canvas->viewport()->width(), 1)
        .position({0, event});
}

/// Returns the tool tip at an event of the only lane.
QString toolTip(const ProbeTimeline &timeline, const TimelineView &view, int event)
{
    QWidget *viewport = view.canvas()->viewport();
    const QPoint place = position(timeline, view, event).toPoint();
    QHelpEvent help(QEvent::ToolTip, place, viewport->mapToGlobal(place));
    QCoreApplication::sendEvent(viewport, &help);
    return QToolTip::text();
}

/// Returns whether `image` has a pixel of nearly this colour.
bool hasColour(const QImage &image, const QColor &colour)
{
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y) == colour)
                return true;
        }
    }
    return false;
}

} // namespace

/// Tests the timeline, which records what a search did on each port, and the view that draws the timeline.
class TestTimeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void aBoardThatAnswers();
    void aBoardThatAnswersInARetryRound();
    void aSilentPortThroughAllRounds();
    void aPortIsAskedForEachKindOfSentence();
    void whatCantBeReadIsTold();
    void aPortThatCantBeOpened();
    void aCablePulledInTheProbe();
    void twoBoardsOfAType();
    void lanesAreInTheOrderOfTheirNames();
    void aNewSearchBeginsAnew();
    void aBoardThatIsPluggedInLaterHasItsOwnTime();
    void theNextProbeOfAPortReplacesItsLane();
    void stopEndsTheLanes();
    void whatIsSentToABoardIsNoQuery();
    void growsWhileTheSearchRuns();
    void aLongProbeKeepsTheNewestEvents();
    void aLongProbeIsDrawnInFewLines();
    void theMarkStaysAtItsEventInALongProbe();
    void theMarkIsGoneWithItsSearch();
    void theToolTipTellsSentenceAndTime();
    void whatCantBeReadHasAShapeOfItsOwn();
    void textsOfBoardsAreShownAsTheyAre();
    void controlCharactersOfABoardAreEscaped();
    void eachRetryRoundHasItsLine();
    void theMarkFollowsItsPort();
    void theMarkStaysOnAPortThatDoesNotOpen();
    void keysGoFromEventToEvent();
    void zoomsByKey();
    void savesAnSvg();
    void savesAPngForSharpScreens();
    void refusesAPngThatIsTooLarge();
    void tellsWhenAPngCantBeWrittenWhole();
    void refusesOtherPictures();
    void tellsWhenAFileCantBeWritten();
    void needsNoLog();
    void paintsInTheColoursOfThePalette();

private:
    QTemporaryDir m_dir;
};

void TestTimeline::initTestCase()
{
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Trace);
}

void TestTimeline::aBoardThatAnswers()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA,delay=30");
    fixture.searchToTheEnd({BoardA}, 0);
    const TimelineLane lane = fixture.lane(board);
    QCOMPARE(
        kinds(lane),
        QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::Answered, PortEvent::HandedOver}));
    QVERIFY(isInOrder(lane));
    QCOMPARE(lane.events.at(1).text, versionQuery);
    QCOMPARE(lane.events.at(2).text, QStringLiteral("$PJWVER,7300022,1,4,0*0d"));
    QVERIFY(lane.events.at(2).ms - lane.events.at(1).ms >= 30);
    QCOMPARE(lane.outcome, QStringLiteral("BoardA"));
    QVERIFY(lane.isGood);
    QVERIFY(!fixture.timeline.isRunning());
    QVERIFY(fixture.timeline.duration() >= lane.events.last().ms);
}

void TestTimeline::aBoardThatAnswersInARetryRound()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardB,ignore=1");
    fixture.searchToTheEnd({BoardB}, 3);
    const TimelineLane lane = fixture.lane(board);
    QCOMPARE(kinds(lane),
             QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::TimedOut, PortEvent::Asked,
                                       PortEvent::Answered, PortEvent::HandedOver}));
    QVERIFY(isInOrder(lane));
    QVERIFY(lane.events.at(2).ms - lane.events.at(1).ms >= 399);
    QCOMPARE(lane.events.at(1).round, 0);
    QCOMPARE(lane.events.at(3).round, 1);
    QCOMPARE(lane.events.at(3).text, versionQuery);
}

void TestTimeline::aSilentPortThroughAllRounds()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("silent");
    fixture.searchToTheEnd({BoardA}, 2);
    QVector<PortEvent::Kind> expected{PortEvent::Opened};
    for (int round = 0; round < 3; ++round)
        expected << PortEvent::Asked << PortEvent::TimedOut;
    QCOMPARE(kinds(fixture.lane(board)), expected);
    QCOMPARE(fixture.lane(board).outcome, QStringLiteral("silent"));
    QVERIFY(!fixture.lane(board).isGood);
}

void TestTimeline::aPortIsAskedForEachKindOfSentence()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("silent");
    fixture.searchToTheEnd({BoardA, BoardC}, 1);
    const QVector<TimelineEvent> events = fixture.lane(board).events;
    QCOMPARE(events.size(), 7);
    QCOMPARE(events.at(1).text, versionQuery);
    QCOMPARE(events.at(2).text, informationRequest);
    QCOMPARE(events.at(4).text, versionQuery);
    QCOMPARE(events.at(5).text, informationRequest);
}

void TestTimeline::whatCantBeReadIsTold()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA,checksum=wrong");
    fixture.searchToTheEnd({BoardA}, 0);
    const TimelineLane lane = fixture.lane(board);
    QCOMPARE(
        kinds(lane),
        QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::Unreadable, PortEvent::TimedOut}));
    QVERIFY2(lane.events.at(2).text.startsWith(QLatin1String("$PJWVER,7300022,1,4,0*")),
             qPrintable(lane.events.at(2).text));
}

void TestTimeline::aPortThatCantBeOpened()
{
    TimelineFixture fixture;
    const auto *busy = fixture.attach("BoardA,open=busy");
    fixture.searchToTheEnd({BoardA}, 0);
    QCOMPARE(kinds(fixture.lane(busy)), QVector<PortEvent::Kind>({PortEvent::NotOpened}));
    QVERIFY(!fixture.lane(busy).events.at(0).text.isEmpty());
    QVERIFY(fixture.lane(busy).outcome.startsWith(QLatin1String("not opened")));
}

void TestTimeline::aCablePulledInTheProbe()
{
    TimelineFixture fixture;
    auto *board = fixture.attach("silent");
    fixture.start({BoardA}, 1);
    QTRY_VERIFY(kinds(fixture.lane(board)).contains(PortEvent::Asked));
    board->pull();
    QTRY_VERIFY(kinds(fixture.lane(board)).contains(PortEvent::Lost));
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(kinds(fixture.lane(board)).count(PortEvent::Lost), 1);
    QVERIFY(fixture.lane(board).outcome.startsWith(QLatin1String("lost")));
}

void TestTimeline::twoBoardsOfAType()
{
    TimelineFixture fixture;
    const auto *first = fixture.attach("BoardA");
    const auto *second = fixture.attach("BoardA,delay=50");
    fixture.searchToTheEnd({BoardA}, 0);
    for (const auto *board : {first, second}) {
        QCOMPARE(kinds(fixture.lane(board)),
                 QVector<PortEvent::Kind>(
                     {PortEvent::Opened, PortEvent::Asked, PortEvent::Answered, PortEvent::HandedOver}));
        QCOMPARE(fixture.lane(board).outcome, QStringLiteral("BoardA"));
    }
}

void TestTimeline::lanesAreInTheOrderOfTheirNames()
{
    TimelineFixture fixture;
    QStringList names;
    for (const char *board : {"BoardB,open=busy", "silent", "BoardA"})
        names.append(fixture.attach(board)->portName());
    fixture.searchToTheEnd({BoardA, BoardB}, 0);
    QStringList lanes;
    for (const TimelineLane &lane : fixture.timeline.lanes())
        lanes.append(lane.port);
    QCOMPARE(lanes, names);
}

void TestTimeline::aNewSearchBeginsAnew()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("silent");
    const auto *other = fixture.attach("BoardC");
    fixture.searchToTheEnd({BoardA}, 1);
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.retries = 0;
    settings.ports = QStringList{board->portName()};
    fixture.finder.start(settings);
    QVERIFY(fixture.timeline.lanes().isEmpty());
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(kinds(fixture.lane(board)),
             QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::TimedOut}));
    QVERIFY(fixture.lane(board).events.at(0).ms < 400);
    QVERIFY(fixture.lane(other).events.isEmpty());
}

void TestTimeline::aBoardThatIsPluggedInLaterHasItsOwnTime()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    fixture.searchToTheEnd({BoardA, BoardB}, 0); // takes at least 400 ms
    const auto events = fixture.lane(board).events.size();
    const auto *late = fixture.attach("BoardB");
    QTRY_VERIFY(fixture.lane(late).isGood);
    QVERIFY(fixture.lane(late).events.at(0).ms < 400);
    QCOMPARE(fixture.timeline.lanes().size(), 3);
    QCOMPARE(fixture.lane(board).events.size(), events);
    QCOMPARE(fixture.lane(silent).outcome, QStringLiteral("silent"));
    QVERIFY(!fixture.timeline.isRunning());
}

void TestTimeline::theNextProbeOfAPortReplacesItsLane()
{
    TimelineFixture fixture;
    auto *board = fixture.attach("silent");
    fixture.searchToTheEnd({BoardA}, 0);
    const qint64 start = fixture.lane(board).startNs;
    board->pull();
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QCOMPARE(fixture.lane(board).outcome, QStringLiteral("silent")); // the probe was over before
    QVERIFY(board->plug());
    QTRY_VERIFY(fixture.lane(board).startNs != start);
    QTRY_VERIFY(!fixture.timeline.isRunning());
    QCOMPARE(kinds(fixture.lane(board)),
             QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::TimedOut}));
    QVERIFY(isInOrder(fixture.lane(board)));
}

void TestTimeline::stopEndsTheLanes()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("silent");
    fixture.start({BoardA}, 3);
    QTRY_COMPARE(fixture.lane(board).events.size(), 2);
    QVERIFY(fixture.timeline.isRunning());
    fixture.finder.stop();
    QVERIFY(!fixture.timeline.isRunning());
    QCOMPARE(fixture.lane(board).outcome, QStringLiteral("no answer before the search ended"));
    const double end = fixture.timeline.duration();
    QVERIFY(end >= fixture.lane(board).events.last().ms);
    QSignalSpy changed(&fixture.finder, &BoardFinder::changed);
    QTRY_VERIFY(changed.size() > 0);
    QCOMPARE(fixture.timeline.duration(), end);
    QCOMPARE(fixture.lane(board).outcome, QStringLiteral("no answer before the search ended"));
}

void TestTimeline::whatIsSentToABoardIsNoQuery()
{
    TimelineFixture fixture;
    fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(found.size(), 1);
    found.at(0).at(0).value<BoardLink>().communicator->writePayload(QStringLiteral("$PJWVER*0c\r\n"));
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(kinds(fixture.lane(silent)),
             QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::TimedOut}));
}

void TestTimeline::growsWhileTheSearchRuns()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("silent");
    fixture.start({BoardA}, 1);
    QTRY_COMPARE(kinds(fixture.lane(board)).size(), 2);
    QVERIFY(fixture.timeline.isRunning());
    QTRY_COMPARE(kinds(fixture.lane(board)).size(), 4); // the retry round began
    QVERIFY(fixture.timeline.isRunning());
    QTRY_VERIFY(!fixture.timeline.isRunning());
}

void TestTimeline::aLongProbeKeepsTheNewestEvents()
{
    TimelineFixture fixture;
    LongProbe(&fixture.finder).retry(10000);
    const TimelineLane lane = fixture.timeline.lanes().at(0);
    QCOMPARE(lane.events.size(), ProbeTimeline::maxEvents);
    QCOMPARE(lane.dropped, 1 + 2 * 10000 + 1 - ProbeTimeline::maxEvents);
    QCOMPARE(lane.queries, 10001);
    QVERIFY(isInOrder(lane));
    QCOMPARE(lane.events.last().kind, PortEvent::Asked);
    QCOMPARE(lane.events.last().round, 10000);
    QCOMPARE(lane.events.last().text, versionQuery);
}

void TestTimeline::aLongProbeIsDrawnInFewLines()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    LongProbe(&fixture.finder).retry(10000);
    const QString fileName = m_dir.filePath(QStringLiteral("long.svg"));
    QCOMPARE(view.saveTo(fileName), QString());
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray picture = file.readAll();
    // At most two lines or shapes for each pixel column, although the search has many thousand events.
    QVERIFY2(picture.count("<p") < 2 * view.width(), QByteArray::number(picture.count("<p")));
}

void TestTimeline::theMarkStaysAtItsEventInALongProbe()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    LongProbe probe(&fixture.finder);
    probe.retry(ProbeTimeline::maxEvents / 2 - 1);
    // Each key moves the mark to the next event; the last event is the query of retry round 3.
    for (int i = 0; i < 8; ++i)
        QTest::keyClick(view.canvas(), Qt::Key_Right);
    const QString marked = view.canvas()->accessibleDescription();
    QVERIFY2(marked.contains(QLatin1String("query sent (retry 3)")), qPrintable(marked));
    probe.retry(1);
    QVERIFY(fixture.timeline.lanes().at(0).dropped > 0);
    QCOMPARE(view.canvas()->accessibleDescription(), marked);
    QTest::keyClick(view.canvas(), Qt::Key_Left);
    QTest::keyClick(view.canvas(), Qt::Key_Right);
    QCOMPARE(view.canvas()->accessibleDescription(), marked);
    probe.retry(10);
    QCOMPARE(view.canvas()->accessibleDescription(), QString()); // the marked event was dropped, so nothing is marked
}

void TestTimeline::theMarkIsGoneWithItsSearch()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    const LongProbe probe(&fixture.finder);
    QTest::keyClick(view.canvas(), Qt::Key_Right);
    QVERIFY(!view.canvas()->accessibleDescription().isEmpty());
    Q_EMIT fixture.finder.started();
    QCOMPARE(view.canvas()->accessibleDescription(), QString());
    view.grab();
}

void TestTimeline::theToolTipTellsSentenceAndTime()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA,delay=100");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    view.show();
    fixture.searchToTheEnd({BoardA}, 0);
    const QString text = toolTip(fixture.timeline, view, 2);
    QVERIFY2(text.contains(QLatin1String("reply  $PJWVER,7300022,1,4,0*0d")), qPrintable(text));
    QVERIFY(text.contains(board->portName()));
    QVERIFY(text.contains(QString::number(fixture.lane(board).events.at(2).ms, 'f', 1) + QLatin1String(" ms")));
}

void TestTimeline::whatCantBeReadHasAShapeOfItsOwn()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA,checksum=wrong,delay=100");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    QCOMPARE(fixture.lane(board).events.at(2).kind, PortEvent::Unreadable);
    const auto *viewport = view.canvas()->viewport();
    const QImage picture = view.grab().toImage();
    // Distance of the checked points from the centre of the shape. The tip of an arrow would be between these points,
    // which would then have the colour of the background.
    const double corner = 0.2 * view.canvas()->fontMetrics().height();
    const QPointF centre = position(fixture.timeline, view, 2) + viewport->mapTo(&view, QPoint());
    const QColor colour = Theme::colour(view.palette(), Theme::Problem);
    for (const double side : {-corner, corner}) {
        const QColor seen = picture.pixelColor((centre + QPointF(-corner, side)).toPoint());
        // Where the edge of the shape is within this pixel, smoothing mixes in a little of the background.
        const int difference =
            qAbs(seen.red() - colour.red()) + qAbs(seen.green() - colour.green()) + qAbs(seen.blue() - colour.blue());
        QVERIFY2(difference < 20, qPrintable(seen.name()));
    }
    QVERIFY(view.findChild<QLabel *>()->text().contains(QLatin1String("unreadable")));
}

void TestTimeline::textsOfBoardsAreShownAsTheyAre()
{
    TimelineFixture fixture;
    auto *board = fixture.attach("silent");
    connect(board, &JwSimulator::Board::sentenceReceived, board, [board] { board->send("$<b>&amp;*00\r\n"); });
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    const QString text = toolTip(fixture.timeline, view, 2);
    QVERIFY2(text.contains(QLatin1String("$&lt;b&gt;&amp;amp;*00")), qPrintable(text));
    QCOMPARE(view.findChild<QLabel *>()->textFormat(), Qt::PlainText);
}

void TestTimeline::controlCharactersOfABoardAreEscaped()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    LongProbe probe(&fixture.finder);
    probe.tell(PortEvent::Unreadable, QStringLiteral("$\x01\x1b[31m"));
    QVERIFY2(fixture.timeline.lanes().at(0).events.last().text.startsWith(QLatin1String("$\\x01\\x1b[31m")),
             qPrintable(fixture.timeline.lanes().at(0).events.last().text));
    const QString fileName = m_dir.filePath(QStringLiteral("escaped.svg"));
    QCOMPARE(view.saveTo(fileName), QString());
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader reader(&file); // fails at a control character, because XML does not allow control characters
    while (!reader.atEnd())
        reader.readNext();
    QVERIFY2(!reader.hasError(), qPrintable(reader.errorString()));
}

void TestTimeline::eachRetryRoundHasItsLine()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    const auto dashedLines = [&] {
        const QString fileName = m_dir.filePath(QStringLiteral("rounds.svg"));
        QFile file(fileName);
        if (!view.saveTo(fileName).isEmpty() || !file.open(QIODevice::ReadOnly))
            return QString::size_type(-1);
        QString::size_type lines = 0;
        const QStringList groups = QString::fromUtf8(file.readAll()).split(QStringLiteral("<g "));
        for (const QString &group : groups) { // the shapes of a group are drawn with the same pen
            if (group.contains(QLatin1String("stroke-dasharray")))
                lines += group.count(QLatin1String("<p"));
        }
        return lines;
    };
    LongProbe probe(&fixture.finder);
    QCOMPARE(dashedLines(), 0);
    probe.retry(2);
    QCOMPARE(dashedLines(), 2);
}

void TestTimeline::theMarkFollowsItsPort()
{
    TimelineFixture fixture;
    TimelineView view(&fixture.timeline);
    const LongProbe second(&fixture.finder, QStringLiteral("ttyACM1"));
    QTest::keyClick(view.canvas(), Qt::Key_Right);
    const QString marked = view.canvas()->accessibleDescription();
    QVERIFY2(marked.startsWith(QLatin1String("ttyACM1")), qPrintable(marked));
    const LongProbe first(&fixture.finder, QStringLiteral("ttyACM0"), false);
    QCOMPARE(fixture.timeline.lanes().size(), 2);
    QCOMPARE(view.canvas()->accessibleDescription(), marked);
    QTest::keyClick(view.canvas(), Qt::Key_Right);
    QTest::keyClick(view.canvas(), Qt::Key_Left);
    QCOMPARE(view.canvas()->accessibleDescription(), marked);
    // The next probe of the port replaces the marked event.
    const LongProbe again(&fixture.finder, QStringLiteral("ttyACM1"), false);
    QCOMPARE(view.canvas()->accessibleDescription(), QString());
}

void TestTimeline::theMarkStaysOnAPortThatDoesNotOpen()
{
    TimelineFixture fixture;
    const auto *busy = fixture.attach("BoardA,open=busy");
    TimelineView view(&fixture.timeline);
    fixture.searchToTheEnd({BoardA}, 0);
    QTest::keyClick(view.canvas(), Qt::Key_Right);
    const QString marked = view.canvas()->accessibleDescription();
    QVERIFY2(marked.startsWith(busy->portName()), qPrintable(marked));
    QSignalSpy attempts(&fixture.finder, &BoardFinder::portEvent);
    QTRY_COMPARE(attempts.size(), 2);
    QCOMPARE(view.canvas()->accessibleDescription(), marked);
    QCOMPARE(kinds(fixture.lane(busy)), QVector<PortEvent::Kind>({PortEvent::NotOpened}));
}

void TestTimeline::keysGoFromEventToEvent()
{
    TimelineFixture fixture;
    const auto *first = fixture.attach("BoardA,delay=20");
    const auto *second = fixture.attach("BoardB,delay=60");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA, BoardB}, 0);
    QSignalSpy described(view.canvas(), &TimelineCanvas::described);
    const auto press = [&](Qt::Key key) {
        QTest::keyClick(view.canvas(), key);
        return described.isEmpty() ? QString() : described.last().at(0).toString();
    };
    QVERIFY(press(Qt::Key_Right).startsWith(first->portName()));
    QVERIFY(press(Qt::Key_Right).contains(versionQuery));
    QVERIFY(press(Qt::Key_Right).contains(QLatin1String("$PJWVER,7300022")));
    QVERIFY(press(Qt::Key_Down).startsWith(second->portName()));
    QVERIFY(press(Qt::Key_Down).contains(QLatin1String("$PJWVER,7300021")));
    QVERIFY(press(Qt::Key_Left).contains(versionQuery));
    QVERIFY(press(Qt::Key_Up).startsWith(first->portName()));
    QVERIFY(view.findChild<QLabel *>()->text().contains(versionQuery));
}

void TestTimeline::zoomsByKey()
{
    TimelineFixture fixture;
    fixture.attach("BoardA");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    view.show();
    fixture.searchToTheEnd({BoardA}, 0);
    const double width = view.canvas()->pictureSize().width();
    QTest::keyClick(view.canvas(), Qt::Key_Plus);
    QVERIFY(view.canvas()->pictureSize().width() > width);
    QTest::keyClick(view.canvas(), Qt::Key_Minus);
    QTest::keyClick(view.canvas(), Qt::Key_Minus);
    QCOMPARE(view.canvas()->zoom(), 1.0);
    QTest::keyClick(view.canvas(), Qt::Key_Plus);
    QTest::keyClick(view.canvas(), Qt::Key_0);
    QCOMPARE(view.canvas()->pictureSize().width(), width);
}

void TestTimeline::savesAnSvg()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    const QString fileName = m_dir.filePath(QStringLiteral("timeline.svg"));
    QCOMPARE(view.saveTo(fileName), QString());
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader reader(&file);
    QString text;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::Characters)
            text += reader.text();
    }
    QVERIFY2(!reader.hasError(), qPrintable(reader.errorString()));
    QVERIFY(text.contains(board->portName()));
    QVERIFY(text.contains(versionQuery));
}

void TestTimeline::savesAPngForSharpScreens()
{
    TimelineFixture fixture;
    fixture.attach("BoardA");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    const QString fileName = m_dir.filePath(QStringLiteral("timeline.PNG"));
    QCOMPARE(view.saveTo(fileName), QString());
    const QImage image(fileName);
    QCOMPARE(image.size(), view.canvas()->pictureSize().toSize() * 2);
    QVERIFY(hasColour(image, Theme::colour(view.palette(), Theme::Good)));
}

void TestTimeline::refusesAPngThatIsTooLarge()
{
    TimelineFixture fixture;
    fixture.attach("BoardA");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    view.canvas()->setZoom(1000);
    const QString fileName = m_dir.filePath(QStringLiteral("large.png"));
    QVERIFY(view.saveTo(fileName).contains(QLatin1String("zoom out (0), or save it as SVG")));
    QVERIFY(!QFile::exists(fileName));
    QCOMPARE(view.saveTo(m_dir.filePath(QStringLiteral("large.svg"))), QString());
    view.canvas()->setZoom(1);
    QCOMPARE(view.saveTo(fileName), QString());
}

void TestTimeline::tellsWhenAPngCantBeWrittenWhole()
{
    TimelineFixture fixture;
    const TimelineView view(&fixture.timeline);
    const QString fileName = m_dir.filePath(QStringLiteral("full.png"));
    QVERIFY(QFile::link(QStringLiteral("/dev/full"), fileName));
    QVERIFY(view.saveTo(fileName).contains(QLatin1String("can't be written")));
}

void TestTimeline::refusesOtherPictures()
{
    TimelineFixture fixture;
    const TimelineView view(&fixture.timeline);
    const QString fileName = m_dir.filePath(QStringLiteral("timeline.txt"));
    QVERIFY(view.saveTo(fileName).contains(QLatin1String(".svg or .png")));
    QVERIFY(!QFile::exists(fileName));
}

void TestTimeline::tellsWhenAFileCantBeWritten()
{
    TimelineFixture fixture;
    const TimelineView view(&fixture.timeline);
    QVERIFY(
        view.saveTo(m_dir.filePath(QStringLiteral("none/timeline.png"))).contains(QLatin1String("can't be written")));
}

void TestTimeline::needsNoLog()
{
    TimelineFixture fixture;
    const auto *board = fixture.attach("BoardA,ignore=1");
    loggerInstance()->setLevel(Logger::Fatal);
    fixture.searchToTheEnd({BoardA}, 1);
    loggerInstance()->setLevel(Logger::Trace);
    QCOMPARE(kinds(fixture.lane(board)),
             QVector<PortEvent::Kind>({PortEvent::Opened, PortEvent::Asked, PortEvent::TimedOut, PortEvent::Asked,
                                       PortEvent::Answered, PortEvent::HandedOver}));
}

void TestTimeline::paintsInTheColoursOfThePalette()
{
    TimelineFixture fixture;
    fixture.attach("BoardA");
    TimelineView view(&fixture.timeline);
    view.resize(1000, 300);
    fixture.searchToTheEnd({BoardA}, 0);
    for (const Theme::Palette palette : {Theme::Palette::Light, Theme::Palette::Dark}) {
        Theme::apply(*qApp, palette);
        QCOMPARE(Theme::of(view.palette()), palette);
        const QImage image = view.grab().toImage();
        QVERIFY(hasColour(image, Theme::colour(view.palette(), Theme::Good)));
        QVERIFY(hasColour(image, view.palette().color(QPalette::Base)));
    }
}

SIMULATED_WINDOW_MAIN(TestTimeline)
#include "tst_jwmonitor_timeline.moc"
