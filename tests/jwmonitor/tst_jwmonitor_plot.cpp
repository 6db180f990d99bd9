#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/history/historyscan.h>
#include <jwmonitor/plot/plotaxis.h>
#include <jwmonitor/plot/plotcanvas.h>
#include <jwmonitor/plot/plotdata.h>
#include <jwmonitor/plot/plotview.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QComboBox>
#include <QDeadlineTimer>
#include <QSignalSpy>

using namespace JwMonitor;

Q_DECLARE_METATYPE(QVector<double>)

namespace {

constexpr qint64 second = 1000000;
const QString acm0 = QStringLiteral("ttyACM0");
const QString acm1 = QStringLiteral("ttyACM1");

TrafficRecord at(qint64 timeUs, const QString &body, const QString &port = acm0, const QString &board = QString())
{
    return {timeUs, port, Direction::Received, framed(body), 2, Transfer::None, board};
}

/// Returns a text with time and value for each sample, for example "5s=2" or "5.25s=2".
QStringList sampleTexts(const std::deque<PlotSample> &samples)
{
    QStringList texts;
    for (const PlotSample &sample : samples)
        texts << QStringLiteral("%1s=%2").arg(static_cast<double>(sample.timeUs) / second).arg(sample.value);
    return texts;
}

int pixelsOf(const QImage &image, QRgb colour)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += image.pixel(x, y) == colour ? 1 : 0;
    }
    return count;
}

/// Shows the view, and chooses the only field of the payloads, so that the plot draws this field.
void showOnlyField(PlotView &view)
{
    view.resize(700, 400);
    view.show();
    QTRY_COMPARE(view.findChild<PlotData *>()->fields().size(), 1);
    QTest::keyClick(view.findChild<QComboBox *>(QStringLiteral("quantity")), Qt::Key_Down);
}

} // namespace

/// Tests jwmonitor's plot.
class TestPlot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueMarksAreRound_data();
    void valueMarksAreRound();
    void timeMarksAreRound_data();
    void timeMarksAreRound();
    void anAxisMapsItsRange();

    void countsPayloadsPerSecond();
    void countsEachPortByItself();
    void boardOnAnotherPortGoesOnInItsCurve();
    void twoBoardsOfOnePortHaveTwoCurves();
    void aSlowTurnDelaysNoLaterPayload();
    void secondsWithoutPayloadsCountNone();
    void aClockThatGoesBackIsHeldUp();
    void readsTheValuesOfAField();
    void spoiltPayloadsCountButHaveNoValues();
    void fieldsWithNumbersAreOffered();
    void aFieldHasItsNameAndDirection();
    void noiseDoesNotOfferFieldsWithoutEnd();
    void samplesGoWithTheirPayloads();
    void aLongHistoryIsReadWhole();

    void theViewOffersTheFields();
    void theViewDrawsACurvePerPort();
    void theViewDrawsADenseCurve();
    void longNumbersHaveTheirRoom();
    void theCursorMovesByKeys();
};

void TestPlot::valueMarksAreRound_data()
{
    QTest::addColumn<double>("low");
    QTest::addColumn<double>("high");
    QTest::addColumn<int>("maxMarks");
    QTest::addColumn<QVector<double>>("marks");
    QTest::newRow("steps of 1") << 0.0 << 4.0 << 5 << QVector<double>{0, 1, 2, 3, 4};
    QTest::newRow("steps of 2") << 0.0 << 7.0 << 5 << QVector<double>{0, 2, 4, 6};
    QTest::newRow("steps of 5") << 3.0 << 21.0 << 5 << QVector<double>{5, 10, 15, 20};
    QTest::newRow("steps of 10") << 0.0 << 36.0 << 5 << QVector<double>{0, 10, 20, 30};
    QTest::newRow("small") << 0.0 << 0.5 << 3 << QVector<double>{0, 0.5};
    QTest::newRow("below zero") << -4.0 << 4.0 << 5 << QVector<double>{-4, -2, 0, 2, 4};
    QTest::newRow("no extent") << 100.0 << 100.0 << 5 << QVector<double>{90, 95, 100, 105, 110};
    QTest::newRow("no extent at zero") << 0.0 << 0.0 << 5 << QVector<double>{-1, -0.5, 0, 0.5, 1};
    QTest::newRow("close and large") << 1e16 << 1e16 + 10 << 5 << QVector<double>{9e15, 1e16, 1.1e16};
    QTest::newRow("as large as can be") << -1.7e308 << 1.7e308 << 5 << QVector<double>{-1e300, -5e299, 0, 5e299, 1e300};
    QTest::newRow("as small as can be") << 0.0 << 5e-324 << 5 << QVector<double>{-1, -0.5, 0, 0.5, 1};
    QTest::newRow("no room") << 0.0 << 4.0 << 0 << QVector<double>{0};
}

void TestPlot::valueMarksAreRound()
{
    QFETCH(double, low);
    QFETCH(double, high);
    QFETCH(int, maxMarks);
    QTEST(PlotAxis::forValues(low, high, maxMarks).marks(), "marks");
}

void TestPlot::timeMarksAreRound_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<int>("maxMarks");
    QTest::addColumn<QVector<double>>("marks");
    QTest::newRow("seconds") << 3 << 7 << 5 << QVector<double>{3, 4, 5, 6, 7};
    QTest::newRow("quarters of a minute") << 1 << 61 << 6 << QVector<double>{15, 30, 45, 60};
    QTest::newRow("minutes") << 1 << 301 << 6 << QVector<double>{60, 120, 180, 240, 300};
    QTest::newRow("less than a second") << 5 << 5 << 5 << QVector<double>{5, 6};
    QTest::newRow("weeks") << 1 << 604801 << 3
                           << QVector<double>{86400, 172800, 259200, 345600, 432000, 518400, 604800};
}

void TestPlot::timeMarksAreRound()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(int, maxMarks);
    QVector<double> marks = PlotAxis::forTimes(from * second, to * second, maxMarks).marks();
    for (double &mark : marks)
        mark /= second;
    QTEST(marks, "marks");
}

void TestPlot::anAxisMapsItsRange()
{
    const PlotAxis axis = PlotAxis::forValues(10, 30, 5);
    QCOMPARE(axis.position(10), 0.0);
    QCOMPARE(axis.position(25), 0.75);
    QCOMPARE(axis.position(30), 1.0);
}

void TestPlot::countsPayloadsPerSecond()
{
    TrafficModel model;
    const PlotData data(&model);
    model.append(at(5 * second, QStringLiteral("PA")));
    model.append(at(5 * second + 999999, QStringLiteral("PB")));
    model.append(at(6 * second, QStringLiteral("PA")));
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList({QStringLiteral("5s=2"), QStringLiteral("6s=1")}));
}

void TestPlot::countsEachPortByItself()
{
    TrafficModel model;
    const PlotData data(&model);
    model.append(at(5 * second, QStringLiteral("PA"), acm0));
    model.append(at(5 * second, QStringLiteral("PA"), acm1));
    model.flush();
    QCOMPARE(data.curves().keys(), QList<QString>({acm0, acm1}));
    QCOMPARE(sampleTexts(data.curves()[acm1]), QStringList(QStringLiteral("5s=1")));
}

void TestPlot::boardOnAnotherPortGoesOnInItsCurve()
{
    TrafficModel model;
    const PlotData data(&model);
    const QString board = QStringLiteral("S7:1.0");
    model.append(at(5 * second, QStringLiteral("PA"), acm0, board));
    model.append(at(6 * second, QStringLiteral("PA"), acm1, board));
    model.flush();
    QCOMPARE(data.curves().keys(), QStringList{board});
    QCOMPARE(sampleTexts(data.curves()[board]), QStringList({QStringLiteral("5s=1"), QStringLiteral("6s=1")}));
    QCOMPARE(data.curveName(board), acm1);
}

void TestPlot::twoBoardsOfOnePortHaveTwoCurves()
{
    TrafficModel model;
    const PlotData data(&model);
    model.append(at(5 * second, QStringLiteral("PA"), acm0, QStringLiteral("S1:1.0")));
    model.append(at(6 * second, QStringLiteral("PA"), acm0, QStringLiteral("S2:1.0")));
    model.flush();
    QCOMPARE(data.curves().size(), 2);
    QCOMPARE(data.curveName(QStringLiteral("S1:1.0")), acm0 + QStringLiteral(" (S1:1.0)"));
    QCOMPARE(data.curveName(QStringLiteral("S2:1.0")), acm0 + QStringLiteral(" (S2:1.0)"));
    model.append(at(7 * second, QStringLiteral("PA"), acm1, QStringLiteral("S1:1.0")));
    model.flush();
    QCOMPARE(data.curveName(QStringLiteral("S1:1.0")), acm1);
    QCOMPARE(data.curveName(QStringLiteral("S2:1.0")), acm0);
}

void TestPlot::aSlowTurnDelaysNoLaterPayload()
{
    TrafficModel model;
    const HistoryScan scan(&model);
    int rows = 0;
    connect(&scan, &HistoryScan::reached, this, [&rows](int first, int last) {
        rows += last - first + 1;
        const QDeadlineTimer slow(10); // ms; longer than a turn lasts
        while (!slow.hasExpired()) { }
    });
    for (int payload = 1; payload <= 2; ++payload) {
        model.append(at(payload * second, QStringLiteral("PA")));
        model.flush();
        QCOMPARE(rows, payload);
    }
}

void TestPlot::secondsWithoutPayloadsCountNone()
{
    TrafficModel model;
    const PlotData data(&model);
    for (const qint64 time : {5, 7, 20})
        model.append(at(time * second, QStringLiteral("PA")));
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]),
             QStringList({QStringLiteral("5s=1"), QStringLiteral("6s=0"), QStringLiteral("7s=1"),
                          QStringLiteral("8s=0"), QStringLiteral("19s=0"), QStringLiteral("20s=1")}));
}

void TestPlot::aClockThatGoesBackIsHeldUp()
{
    TrafficModel model;
    PlotData data(&model);
    model.append(at(9 * second, QStringLiteral("PA,1")));
    model.append(at(3 * second, QStringLiteral("PA,2")));
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList(QStringLiteral("9s=2")));
    data.setQuantity(data.fields().first());
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList({QStringLiteral("9s=1"), QStringLiteral("9s=2")}));
}

void TestPlot::readsTheValuesOfAField()
{
    TrafficModel model;
    PlotData data(&model);
    data.setQuantity({QStringLiteral("PA"), Direction::Received, 1});
    model.append(at(5 * second + second / 4, QStringLiteral("PA,1,-2.5")));
    model.append(at(6 * second, QStringLiteral("PB,1,3"))); // ignored: another sentence
    model.append(at(7 * second, QStringLiteral("PA,1,x"))); // ignored: not a number
    model.append(at(8 * second, QStringLiteral("PA,1,inf"))); // ignored: infinite
    model.append(at(9 * second, QStringLiteral("PA,1"))); // ignored: the field is missing
    model.append(at(10 * second, QStringLiteral("PA,1,1e3")));
    model.append({11 * second, acm0, Direction::Sent, framed(QStringLiteral("PA,1,4")), 3});
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList({QStringLiteral("5.25s=-2.5"), QStringLiteral("10s=1000")}));
    data.setQuantity({QStringLiteral("PA"), Direction::Sent, 1});
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList(QStringLiteral("11s=4")));
}

void TestPlot::spoiltPayloadsCountButHaveNoValues()
{
    TrafficModel model;
    PlotData data(&model);
    model.append({5 * second, acm0, Direction::Received, QStringLiteral("$PA,1*00\r\n"), 2});
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList(QStringLiteral("5s=1")));
    QVERIFY(data.fields().isEmpty());
    data.setQuantity({QStringLiteral("PA"), Direction::Received, 0});
    QVERIFY(data.curves().isEmpty());
}

void TestPlot::fieldsWithNumbersAreOffered()
{
    TrafficModel model;
    const PlotData data(&model);
    QSignalSpy added(&data, &PlotData::fieldAdded);
    model.append(at(5 * second, QStringLiteral("PTJWRD,INF,CTRL,3,17,2")));
    model.append(at(5 * second, QStringLiteral("PTJWRD,INF,CTRL,3,17,3")));
    model.append(at(5 * second, QStringLiteral("PTJWRD,INF,7,x,17,3")));
    model.flush();
    QStringList names;
    for (const PlotQuantity &field : data.fields())
        names << data.fieldName(field);
    QCOMPARE(names,
             QStringList({QStringLiteral("PTJWRD devtype"), QStringLiteral("PTJWRD boardid"),
                          QStringLiteral("PTJWRD rev"), QStringLiteral("PTJWRD name")}));
    QCOMPARE(added.size(), 4);
}

void TestPlot::aFieldHasItsNameAndDirection()
{
    TrafficModel model;
    const PlotData data(&model);
    QCOMPARE(data.fieldName({QStringLiteral("PJWVER"), Direction::Received, 0}), QStringLiteral("PJWVER hwversion"));
    QCOMPARE(data.fieldName({QStringLiteral("PX"), Direction::Received, 2}), QStringLiteral("PX 3"));
    QCOMPARE(data.fieldName({QStringLiteral("PX"), Direction::Sent, 2}), QStringLiteral("PX 3, sent"));
}

void TestPlot::noiseDoesNotOfferFieldsWithoutEnd()
{
    TrafficModel model;
    const PlotData data(&model);
    for (int i = 0; i < 1000; ++i)
        model.append(at(5 * second, QStringLiteral("P%1,1").arg(i)));
    model.append(at(5 * second, QStringLiteral("P0") + QStringLiteral(",1").repeated(100)));
    model.flush();
    // 1001 payloads in one second, so the plot has read all of them
    QTRY_COMPARE(data.curves()[acm0].back().value, 1001.0);
    QCOMPARE(data.fields().size(), 100 + 63);
}

void TestPlot::samplesGoWithTheirPayloads()
{
    TrafficModel model;
    PlotData data(&model);
    data.setQuantity({QStringLiteral("PA"), Direction::Received, 0});
    model.append(at(1 * second, QStringLiteral("PA,1")));
    model.append(at(2 * second, QStringLiteral("PA,2")));
    model.flush();
    for (int i = 0; i < TrafficModel::maxRows - 1; ++i)
        model.append(at(3 * second, QStringLiteral("PB")));
    model.flush();
    QCOMPARE(sampleTexts(data.curves()[acm0]), QStringList(QStringLiteral("2s=2")));
    model.clear();
    QVERIFY(data.curves()[acm0].empty());
}

void TestPlot::aLongHistoryIsReadWhole()
{
    TrafficModel model;
    for (int i = 0; i < 20000; ++i)
        model.append(at(i * second / 10, QStringLiteral("PA,%1").arg(i)));
    model.flush();
    PlotData data(&model);
    QTRY_COMPARE(data.curves()[acm0].size(), size_t(2000));
    data.setQuantity(data.fields().first());
    QTRY_COMPARE(data.curves()[acm0].size(), size_t(20000));
    QCOMPARE(data.curves()[acm0].back().value, 19999.0);
}

void TestPlot::theViewOffersTheFields()
{
    TrafficModel model;
    model.append(at(5 * second, QStringLiteral("PA,1")));
    model.flush();
    PlotView view(&model);
    auto *box = view.findChild<QComboBox *>(QStringLiteral("quantity"));
    model.append(at(5 * second, QStringLiteral("PJWVER,7300021")));
    model.flush();
    QTRY_COMPARE(columnTexts(box->model(), 0),
                 QStringList({QStringLiteral("Payloads per second"), QStringLiteral("PA 1"),
                              QStringLiteral("PJWVER hwversion")}));
    view.show();
    QTest::keyClick(box, Qt::Key_Down);
    const auto *data = view.findChild<PlotData *>();
    QCOMPARE(data->quantity().identifier, QStringLiteral("PA"));
    QTest::keyClick(box, Qt::Key_Home);
    QVERIFY(data->quantity().isRate());
}

void TestPlot::theViewDrawsACurvePerPort()
{
    TrafficModel model;
    PlotView view(&model);
    view.resize(700, 400);
    view.show();
    auto *canvas = view.findChild<PlotCanvas *>();
    const QImage empty = canvas->grab().toImage();
    const qint64 now = microsecondsSinceEpoch();
    for (int i = 0; i < 10; ++i) {
        model.append(at(now - (12 - i) * second, QStringLiteral("PA"), acm0));
        for (int j = 0; j < 3; ++j)
            model.append(at(now - (12 - i) * second, QStringLiteral("PA"), acm1));
    }
    model.flush();
    const QImage drawn = canvas->grab().toImage();
    for (const Theme::Role role : {Theme::Series1, Theme::Series2}) {
        const QRgb colour = Theme::colour(canvas->palette(), role).rgb();
        QCOMPARE(pixelsOf(empty, colour), 0);
        QVERIFY(pixelsOf(drawn, colour) > 30); // the dots that mark the samples
    }
}

void TestPlot::theViewDrawsADenseCurve()
{
    TrafficModel model;
    const qint64 begin = microsecondsSinceEpoch() - 50 * second;
    for (int i = 0; i < 5000; ++i)
        model.append(at(begin + i * second / 100, QStringLiteral("PA,%1").arg(i % 2)));
    model.flush();
    PlotView view(&model);
    showOnlyField(view);
    QTRY_COMPARE(view.findChild<PlotData *>()->curves()[acm0].size(), size_t(5000));
    auto *canvas = view.findChild<PlotCanvas *>();
    const QRgb colour = Theme::colour(canvas->palette(), Theme::Series1).rgb();
    // The payloads cover 50 of the 60 seconds that the plot shows, and their values alternate between 0 and 1. So the
    // curve fills five sixths of the plot. A quarter of the canvas is enough for the test, because the canvas also has
    // space for labels.
    QVERIFY(pixelsOf(canvas->grab().toImage(), colour) > canvas->width() * canvas->height() / 4);
}

void TestPlot::longNumbersHaveTheirRoom()
{
    TrafficModel model;
    const qint64 now = microsecondsSinceEpoch();
    model.append(at(now - 3 * second, QStringLiteral("PA,-123456789000")));
    model.append(at(now - 2 * second, QStringLiteral("PA,-123456780000")));
    model.flush();
    PlotView view(&model);
    showOnlyField(view);
    QTRY_COMPARE(view.findChild<PlotData *>()->curves()[acm0].size(), size_t(2));
    auto *canvas = view.findChild<PlotCanvas *>();
    const int margin = canvas->fontMetrics().height() / 4;
    const QImage left = canvas->grab().toImage().copy(1, canvas->height() / 4, margin, canvas->height() / 2);
    QCOMPARE(pixelsOf(left, canvas->palette().color(QPalette::Base).rgb()), left.width() * left.height());
}

void TestPlot::theCursorMovesByKeys()
{
    TrafficModel model;
    const qint64 now = microsecondsSinceEpoch();
    model.append(at(now - 3 * second, QStringLiteral("PA")));
    model.flush();
    PlotView view(&model);
    view.show();
    auto *canvas = view.findChild<PlotCanvas *>();
    // Background of the text that shows the time at the cursor.
    const QRgb colour = canvas->palette().color(QPalette::Highlight).rgb();
    QCOMPARE(pixelsOf(canvas->grab().toImage(), colour), 0);
    QTest::keyClick(canvas, Qt::Key_Left);
    QVERIFY(pixelsOf(canvas->grab().toImage(), colour) > 100);
}

SIMULATED_WINDOW_MAIN(TestPlot)
#include "tst_jwmonitor_plot.moc"
