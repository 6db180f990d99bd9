#include "plotcanvas.h"

#include <jwmonitor/history/clock.h>
#include <jwmonitor/look/qtversion.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/traffic/traffictext.h>

#include <QKeyEvent>
#include <QLocale>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <limits>

namespace JwMonitor {

namespace {

constexpr qint64 second = 1000000;
constexpr int refreshMs = 100;
constexpr Theme::Role seriesRoles[] = {Theme::Series1, Theme::Series2, Theme::Series3, Theme::Series4};
constexpr Qt::PenStyle penStyles[] = {Qt::SolidLine, Qt::DashLine, Qt::DotLine, Qt::DashDotLine};
constexpr int roles = 4;
constexpr char usualLabel[] = "-00000000"; // least space for axis numbers, so that longer numbers don't move the plot

QString valueText(double value)
{
    return QLocale::c().toString(value, 'g', 8);
}

QString markText(double mark, const PlotAxis &axis)
{
    return valueText(std::abs(mark) < axis.step() / 2 ? 0 : mark);
}

QPointF place(const PlotSample &sample, const QRectF &area, const PlotAxis &times, const PlotAxis &values)
{
    return {area.left() + area.width() * times.position(static_cast<double>(sample.timeUs)),
            area.bottom() - area.height() * values.position(sample.value)};
}

} // namespace

/// The visible samples of a curve, and one more sample to their left, so that the line starts at the edge.
struct PlotCanvas::Curve
{
    using Iterator = std::deque<PlotSample>::const_iterator;

    QString name;
    Iterator begin;
    Iterator end;
};

struct PlotCanvas::Frame
{
    QRectF area;
    PlotAxis times;
    PlotAxis values;
};

PlotCanvas::PlotCanvas(const PlotData *plotData, QWidget *parent)
    : QWidget(parent)
    , m_data(plotData)
    , m_spanUs(0)
    , m_labelWidth(fontMetrics().horizontalAdvance(QLatin1String(usualLabel)))
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setBackgroundRole(QPalette::Base);
    setAutoFillBackground(true);
    m_refresh.setInterval(refreshMs);
    connect(&m_refresh, &QTimer::timeout, this, QOverload<>::of(&PlotCanvas::update));
}

PlotCanvas::~PlotCanvas() = default;

void PlotCanvas::setSpan(int seconds)
{
    m_spanUs = seconds * second;
    update();
}

QSize PlotCanvas::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 40, fontMetrics().height() * 10};
}

void PlotCanvas::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    qint64 beginUs = 0;
    qint64 endUs = 0;
    const QVector<Curve> curves = visibleCurves(&beginUs, &endUs);
    if (curves.isEmpty()) {
        painter.setPen(Theme::colour(palette(), Theme::Quiet));
        painter.drawText(rect(), Qt::AlignCenter, tr("Nothing to plot in this time"));
        return;
    }

    const int maxValues = static_cast<int>(plotArea().height()) / (fontMetrics().height() * 2);
    const PlotAxis values = valueAxis(curves, maxValues);
    m_labelWidth = fontMetrics().horizontalAdvance(QLatin1String(usualLabel));
    const QVector<double> marks = values.marks();
    for (const double mark : marks)
        m_labelWidth = std::max(m_labelWidth, fontMetrics().horizontalAdvance(markText(mark, values)));
    const QRectF area = plotArea();
    const int maxTimes = static_cast<int>(area.width()) / (fontMetrics().averageCharWidth() * 14);
    const Frame frame{area, PlotAxis::forTimes(beginUs, endUs, maxTimes), values};
    paintAxes(painter, frame);
    painter.save();
    painter.setClipRect(area.adjusted(0, -2, 0, 2));
    for (int i = 0; i < curves.size(); ++i) {
        const QPolygonF polygon = line(curves[i], frame);
        const auto points = static_cast<int>(polygon.size());
        painter.setPen(curvePen(i));
        painter.setRenderHint(QPainter::Antialiasing,
                              points < area.width()); // antialiasing is slow, and not seen on dense curves
        // A curve is one unit of Qt's coordinates wide. On a screen of high resolution, that is more than one pixel.
        // But for a dense curve, such a wide pen takes a hundred times as long as a pen of one pixel. So lines of one
        // pixel are drawn side by side.
        for (qreal shift = 0; shift < 1; shift += 1 / devicePixelRatioF())
            painter.drawPolyline(polygon.translated(shift, shift));
        if (points > area.width() / 20)
            continue;
        painter.setBrush(painter.pen().color());
        for (const QPointF &point : polygon)
            painter.drawEllipse(point, 2, 2);
        painter.setBrush(Qt::NoBrush);
    }
    painter.restore();
    paintLegend(painter, curves, frame);
    paintCursor(painter, frame);
    if (hasFocus()) {
        painter.setPen(palette().color(QPalette::Highlight));
        painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    }
}

void PlotCanvas::mouseMoveEvent(QMouseEvent *event)
{
    setCursorAt(positionOf(event).x());
}

void PlotCanvas::leaveEvent(QEvent *)
{
    m_cursor.reset();
    update();
}

void PlotCanvas::keyPressEvent(QKeyEvent *event)
{
    const QRectF area = plotArea();
    const qreal step = fontMetrics().averageCharWidth();
    const qreal x = area.left() + m_cursor.value_or(1) * area.width();
    if (event->key() == Qt::Key_Left)
        setCursorAt(x - step);
    else if (event->key() == Qt::Key_Right)
        setCursorAt(x + step);
    else
        QWidget::keyPressEvent(event);
}

void PlotCanvas::showEvent(QShowEvent *event)
{
    m_refresh.start();
    QWidget::showEvent(event);
}

void PlotCanvas::hideEvent(QHideEvent *event)
{
    m_refresh.stop();
    QWidget::hideEvent(event);
}

QVector<PlotCanvas::Curve> PlotCanvas::visibleCurves(qint64 *beginUs, qint64 *endUs) const
{
    // The plot of a rate leaves the current second out. This second is not over, so its low number of payloads would
    // look like a drop.
    const qint64 now = microsecondsSinceEpoch();
    const qint64 latest = m_data->quantity().isRate() ? now / second * second - 1 : now;
    *endUs = latest;
    *beginUs = latest - m_spanUs;
    if (m_spanUs == 0) {
        for (const auto &samples : m_data->curves()) {
            if (!samples.empty())
                *beginUs = std::min(*beginUs, samples.front().timeUs);
        }
    }

    QVector<Curve> curves;
    const auto isEarlier = [](const PlotSample &sample, qint64 timeUs) { return sample.timeUs < timeUs; };
    for (auto curve = m_data->curves().begin(); curve != m_data->curves().end(); ++curve) {
        const auto &samples = curve.value();
        auto begin = std::lower_bound(samples.begin(), samples.end(), *beginUs, isEarlier);
        const auto end = std::lower_bound(begin, samples.end(), *endUs, isEarlier);
        if (begin != samples.begin())
            --begin;
        if (begin != end)
            curves.append({m_data->curveName(curve.key()), begin, end});
    }
    return curves;
}

PlotAxis PlotCanvas::valueAxis(const QVector<Curve> &curves, int maxMarks) const
{
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (const Curve &curve : curves) {
        for (auto sample = curve.begin; sample != curve.end; ++sample) {
            low = std::min(low, sample->value);
            high = std::max(high, sample->value);
        }
    }
    const double margin = (high - low) * 0.05;
    return PlotAxis::forValues(m_data->quantity().isRate() ? 0 : low - margin, high + margin, maxMarks);
}

// Returns the points of the curve. If several samples fall into one column of pixels, the points are only the lowest
// and the highest of these samples.
QPolygonF PlotCanvas::line(const Curve &curve, const Frame &frame) const
{
    QPolygonF points;
    QPointF low;
    QPointF high;
    const auto addColumn = [&] {
        points.append(low.x() < high.x() ? low : high);
        if (low != high)
            points.append(low.x() < high.x() ? high : low);
    };
    for (auto sample = curve.begin; sample != curve.end; ++sample) {
        const QPointF point = place(*sample, frame.area, frame.times, frame.values);
        if (sample == curve.begin) {
            low = high = point;
        } else if (std::floor(point.x()) != std::floor(low.x())) {
            addColumn();
            low = high = point;
        } else if (point.y() > low.y()) {
            low = point;
        } else if (point.y() < high.y()) {
            high = point;
        }
    }
    addColumn();
    const auto last = curve.end - 1;
    const auto silentFrom = static_cast<double>(last->timeUs + second);
    if (m_data->quantity().isRate() && silentFrom < frame.times.high()) {
        const auto end = static_cast<qint64>(frame.times.high());
        points.append(place({0, last->timeUs + second, 0}, frame.area, frame.times, frame.values));
        points.append(place({0, end, 0}, frame.area, frame.times, frame.values));
    }
    return points;
}

QString PlotCanvas::legendText(const Curve &curve, const Frame &frame) const
{
    if (!m_cursor)
        return curve.name;
    const auto timeUs = frame.times.low() + *m_cursor * (frame.times.high() - frame.times.low());
    const auto isLater = [](double time, const PlotSample &sample) {
        return time < static_cast<double>(sample.timeUs);
    };
    const auto next = std::upper_bound(curve.begin, curve.end, timeUs, isLater);
    if (next == curve.begin)
        return curve.name;
    const PlotSample &sample = *(next - 1);
    const bool isSilent = m_data->quantity().isRate() && timeUs >= static_cast<double>(sample.timeUs + second);
    return tr("%1: %2").arg(curve.name, valueText(isSilent ? 0 : sample.value));
}

void PlotCanvas::paintLegend(QPainter &painter, const QVector<Curve> &curves, const Frame &frame) const
{
    const int line = fontMetrics().height();
    qreal x = frame.area.left();
    for (int i = 0; i < curves.size(); ++i) {
        const QString text = legendText(curves[i], frame);
        const int width = std::max(fontMetrics().horizontalAdvance(text),
                                   fontMetrics().horizontalAdvance(curves[i].name + QStringLiteral(": 0000000")));
        if (x + 2 * line + width > frame.area.right()) {
            painter.setPen(palette().color(QPalette::Text));
            painter.drawText(QPointF(x, line), tr("and %n more", nullptr, static_cast<int>(curves.size()) - i));
            return;
        }
        painter.setPen(curvePen(i));
        painter.drawLine(QPointF(x, line * 0.7), QPointF(x + line, line * 0.7));
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(QPointF(x + line * 1.3, line), text);
        x += 2 * line + width;
    }
}

void PlotCanvas::paintAxes(QPainter &painter, const Frame &frame) const
{
    const int line = fontMetrics().height();
    const QColor grid = Theme::colour(palette(), Theme::Grid);
    const QColor text = palette().color(QPalette::Text);
    const QRectF &area = frame.area;
    const QVector<double> values = frame.values.marks();
    for (const double mark : values) {
        const qreal y = area.bottom() - area.height() * frame.values.position(mark);
        painter.setPen(grid);
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
        painter.setPen(text);
        painter.drawText(QRectF(0, y - line, area.left() - line * 0.4, 2 * line), Qt::AlignRight | Qt::AlignVCenter,
                         markText(mark, frame.values));
    }
    const QVector<double> times = frame.times.marks();
    for (const double mark : times) {
        const qreal x = area.left() + area.width() * frame.times.position(mark);
        painter.setPen(grid);
        painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
        painter.setPen(text);
        painter.drawText(QRectF(x - 5 * line, area.bottom() + line * 0.2, 10 * line, line), Qt::AlignCenter,
                         TrafficText::clock(static_cast<qint64>(mark)).left(8));
    }
    painter.setPen(Theme::colour(palette(), Theme::Quiet));
    painter.drawLine(area.bottomLeft(), area.bottomRight());
}

void PlotCanvas::paintCursor(QPainter &painter, const Frame &frame) const
{
    if (!m_cursor)
        return;
    const QRectF &area = frame.area;
    const qreal x = area.left() + *m_cursor * area.width();
    painter.setPen(palette().color(QPalette::Text));
    painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));

    const auto timeUs = static_cast<qint64>(frame.times.low() + *m_cursor * (frame.times.high() - frame.times.low()));
    const QString text = TrafficText::clock(timeUs);
    const int line = fontMetrics().height();
    const qreal width = fontMetrics().horizontalAdvance(text) + line;
    const qreal left = std::min(std::max(x - width / 2, 0.0), this->width() - width);
    const QRectF box(left, area.bottom() + line * 0.2, width, line);
    painter.fillRect(box, palette().color(QPalette::Highlight));
    painter.setPen(palette().color(QPalette::HighlightedText));
    painter.drawText(box, Qt::AlignCenter, text);
}

QRectF PlotCanvas::plotArea() const
{
    const int line = fontMetrics().height();
    return QRectF(rect()).adjusted(m_labelWidth + line, line * 1.6, -line * 1.5, -line * 1.6);
}

QPen PlotCanvas::curvePen(int index) const
{
    QPen pen(Theme::colour(palette(), seriesRoles[index % roles]), 1, penStyles[index / roles % 4]);
    pen.setCosmetic(true);
    return pen;
}

void PlotCanvas::setCursorAt(qreal x)
{
    const QRectF area = plotArea();
    m_cursor = std::min(std::max((x - area.left()) / area.width(), 0.0), 1.0);
    update();
}

} // namespace JwMonitor
