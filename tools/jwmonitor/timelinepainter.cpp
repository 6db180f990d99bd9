#include "timelinepainter.h"

#include "probetimeline.h"
#include "theme.h"

#include <QFontMetricsF>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace JwMonitor {

namespace {

constexpr double shortestSearch = 50; // ms that are shown at least
constexpr int labelCharacters = 26;
constexpr int lastCharacters = 34; // room for a sentence behind the end of the search

/// 1, 2 or 5 with zeros: the ms between two lines of the axis that are at least `least` apart.
double stepOf(double least)
{
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least)
            return factor * power;
    }
    return 10 * power;
}

bool endsWaiting(TimelineEvent::Kind kind)
{
    return kind == TimelineEvent::Reply || kind == TimelineEvent::TimedOut || kind == TimelineEvent::Lost
        || kind == TimelineEvent::HandedOver;
}

Theme::Role role(TimelineEvent::Kind kind)
{
    switch (kind) {
    case TimelineEvent::Opened:
    case TimelineEvent::TimedOut:
        return Theme::Quiet;
    case TimelineEvent::Query:
        return Theme::Query;
    case TimelineEvent::Reply:
        return Theme::Reply;
    case TimelineEvent::Unreadable:
    case TimelineEvent::NotOpened:
    case TimelineEvent::Lost:
        return Theme::Problem;
    case TimelineEvent::HandedOver:
        return Theme::Good;
    }
    return Theme::Quiet;
}

QPolygonF triangle(const QPointF &tip, double radius, double direction)
{
    return QPolygonF(
        {tip, tip + QPointF(-1.6 * direction * radius, -radius), tip + QPointF(-1.6 * direction * radius, radius)});
}

} // namespace

TimelinePainter::TimelinePainter(const ProbeTimeline &timeline, const QPalette &palette, const QFont &font,
                                 double width, double zoom)
    : m_timeline(timeline)
    , m_palette(palette)
    , m_font(font)
    , m_end(std::max(timeline.duration(), shortestSearch))
{
    const QFontMetricsF metrics(font);
    m_line = metrics.height();
    m_labelWidth = metrics.averageCharWidth() * labelCharacters;
    m_headerHeight = 1.6 * m_line;
    m_laneHeight = 3.2 * m_line;
    m_rightMargin = metrics.averageCharWidth() * lastCharacters;
    m_scale = zoom * std::max(width - m_labelWidth - m_rightMargin, m_labelWidth) / m_end;
}

QSizeF TimelinePainter::size() const
{
    return {xAt(m_end) + m_rightMargin, m_headerHeight + m_laneHeight * m_timeline.lanes().size()};
}

void TimelinePainter::paint(QPainter &painter, const QSizeF &size, const QPointF &offset, Place marked) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setFont(m_font);
    painter.fillRect(QRectF(QPointF(), size), m_palette.color(QPalette::Base));

    painter.save();
    painter.setClipRect(QRectF(m_labelWidth, 0, size.width() - m_labelWidth, size.height()));
    paintAxis(painter, size, offset.x());
    painter.setClipRect(QRectF(m_labelWidth, m_headerHeight, size.width() - m_labelWidth, size.height()));
    painter.translate(-offset);
    const QVector<TimelineLane> &lanes = m_timeline.lanes();
    const int first = std::max(0, static_cast<int>(offset.y() / m_laneHeight));
    const int last = std::min(lanes.size(), static_cast<int>((offset.y() + size.height()) / m_laneHeight) + 1);
    for (int i = first; i < last; ++i)
        paintLane(painter, lanes.at(i), m_headerHeight + i * m_laneHeight);
    if (marked.lane >= 0) {
        painter.setPen(QPen(m_palette.color(QPalette::Highlight), 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(position(marked), 0.55 * m_line, 0.55 * m_line);
    }
    painter.restore();

    painter.save();
    painter.setClipRect(QRectF(0, m_headerHeight, size.width(), size.height()));
    painter.translate(0, -offset.y());
    for (int i = first; i < last; ++i)
        paintLabel(painter, lanes.at(i), m_headerHeight + i * m_laneHeight);
    painter.restore();
}

void TimelinePainter::paintAxis(QPainter &painter, const QSizeF &size, double shift) const
{
    const QColor grid = Theme::colour(m_palette, Theme::Grid);
    const QColor text = Theme::colour(m_palette, Theme::Quiet);
    const double step = stepOf(6 * m_line / m_scale);
    const double end = timeAt(size.width() + shift);
    for (double ms = std::max(0.0, std::floor(timeAt(m_labelWidth + shift) / step) * step); ms <= end; ms += step) {
        const double x = xAt(ms) - shift;
        painter.setPen(grid);
        painter.drawLine(QPointF(x, 0), QPointF(x, size.height()));
        painter.setPen(text);
        const QString label = QLocale().toString(ms, 'f', step < 1 ? 1 : 0);
        painter.drawText(QPointF(x + 4, m_line), ProbeTimeline::tr("%1 ms").arg(label));
    }
    for (int i = 0; i < m_timeline.rounds().size(); ++i) {
        const double x = xAt(m_timeline.rounds().at(i)) - shift;
        painter.setPen(QPen(Theme::colour(m_palette, Theme::Query), 1, Qt::DashLine));
        painter.drawLine(QPointF(x, m_headerHeight), QPointF(x, size.height()));
    }
}

void TimelinePainter::paintLane(QPainter &painter, const TimelineLane &lane, double top) const
{
    const double middle = top + m_laneHeight / 2;
    painter.setPen(Theme::colour(m_palette, Theme::Grid));
    painter.drawLine(QPointF(m_labelWidth, top), QPointF(size().width(), top));
    paintSpans(painter, lane, middle);
    paintSentences(painter, lane, top, true);
    paintSentences(painter, lane, top, false);
    for (const TimelineEvent &event : lane.events)
        paintMarker(painter, event, middle);
}

void TimelinePainter::paintSpans(QPainter &painter, const TimelineLane &lane, double middle) const
{
    const double height = 0.42 * m_line;
    double asked = -1;
    painter.setPen(Qt::NoPen);
    const auto span = [&](double from, double to, Theme::Role colourRole, double thickness) {
        QColor colour = Theme::colour(m_palette, colourRole);
        colour.setAlphaF(0.45);
        painter.setBrush(colour);
        painter.drawRect(QRectF(xAt(from), middle - thickness / 2, (to - from) * m_scale, thickness));
    };
    for (const TimelineEvent &event : lane.events) {
        if (event.kind == TimelineEvent::Query && asked < 0) {
            asked = event.ms;
        } else if (asked >= 0 && endsWaiting(event.kind)) {
            span(asked, event.ms, event.kind == TimelineEvent::Reply ? Theme::Reply : Theme::Waiting, height);
            asked = -1;
        }
        if (event.kind == TimelineEvent::HandedOver)
            span(event.ms, m_end, Theme::Good, height / 4);
    }
    if (asked >= 0)
        span(asked, m_end, Theme::Waiting, height);
}

void TimelinePainter::paintSentences(QPainter &painter, const TimelineLane &lane, double top, bool sent) const
{
    const QFontMetricsF metrics(m_font);
    const double gap = 0.5 * m_line;
    const auto isShown = [sent](const TimelineEvent &event) {
        return !event.text.isEmpty() && event.kind != TimelineEvent::HandedOver
            && sent == (event.kind == TimelineEvent::Query);
    };
    // What comes at the same moment is one text; each ends where the next begins.
    double from = -1;
    QString text;
    QColor colour;
    const auto flush = [&](double to) {
        if (text.isEmpty())
            return;
        const QString shown = metrics.elidedText(text, Qt::ElideRight, to - from - 2 * gap);
        painter.setPen(colour);
        if (shown.size() > 3)
            painter.drawText(QPointF(from + gap, sent ? top + 1.0 * m_line : top + 2.9 * m_line), shown);
    };
    for (const TimelineEvent &event : lane.events) {
        if (!isShown(event))
            continue;
        const double x = xAt(event.ms);
        if (!text.isEmpty() && x - from < gap) {
            text += QLatin1String("  ") + event.text;
            continue;
        }
        flush(x);
        from = x;
        text = event.text;
        colour = Theme::colour(m_palette, role(event.kind));
    }
    flush(size().width());
}

double TimelinePainter::eventY(const TimelineEvent &event, double middle) const
{
    switch (event.kind) {
    case TimelineEvent::Query:
        return middle - 0.42 * m_line;
    case TimelineEvent::Reply:
    case TimelineEvent::Unreadable:
        return middle + 0.42 * m_line;
    default:
        return middle;
    }
}

void TimelinePainter::paintMarker(QPainter &painter, const TimelineEvent &event, double middle) const
{
    const double radius = 0.26 * m_line;
    const QPointF centre(xAt(event.ms), eventY(event, middle));
    const QColor colour = Theme::colour(m_palette, role(event.kind));
    painter.setPen(QPen(colour, 1.6));
    painter.setBrush(colour);
    switch (event.kind) {
    case TimelineEvent::Opened:
        painter.setBrush(m_palette.color(QPalette::Base));
        painter.drawEllipse(centre, radius, radius);
        break;
    case TimelineEvent::Query:
        painter.drawPolygon(triangle(centre + QPointF(radius, 0), radius, 1));
        break;
    case TimelineEvent::Reply:
    case TimelineEvent::Unreadable:
        painter.drawPolygon(triangle(centre - QPointF(radius, 0), radius, -1));
        break;
    case TimelineEvent::TimedOut:
        painter.drawLine(centre - QPointF(0, 1.6 * radius), centre + QPointF(0, 1.6 * radius));
        break;
    case TimelineEvent::NotOpened:
    case TimelineEvent::Lost:
        painter.drawLine(centre - QPointF(radius, radius), centre + QPointF(radius, radius));
        painter.drawLine(centre - QPointF(radius, -radius), centre + QPointF(radius, -radius));
        break;
    case TimelineEvent::HandedOver:
        painter.drawPolygon(QPolygonF({centre - QPointF(0, 1.3 * radius), centre + QPointF(1.3 * radius, 0),
                                       centre + QPointF(0, 1.3 * radius), centre - QPointF(1.3 * radius, 0)}));
        break;
    }
}

void TimelinePainter::paintLabel(QPainter &painter, const TimelineLane &lane, double top) const
{
    const QFontMetricsF metrics(m_font);
    const double margin = 0.5 * m_line;
    painter.setPen(Theme::colour(m_palette, Theme::Grid));
    painter.drawLine(QPointF(0, top), QPointF(m_labelWidth, top));
    QFont bold(m_font);
    bold.setBold(true);
    painter.setFont(bold);
    painter.setPen(m_palette.color(QPalette::Text));
    painter.drawText(QPointF(margin, top + 1.4 * m_line), lane.port);
    painter.setFont(m_font);
    painter.setPen(Theme::colour(m_palette, lane.isGood ? Theme::Good : Theme::Quiet));
    painter.drawText(QPointF(margin, top + 2.5 * m_line),
                     metrics.elidedText(lane.outcome, Qt::ElideRight, m_labelWidth - 2 * margin));
}

QPointF TimelinePainter::position(Place place) const
{
    const TimelineEvent &event = m_timeline.lanes().at(place.lane).events.at(place.event);
    return {xAt(event.ms), eventY(event, m_headerHeight + (place.lane + 0.5) * m_laneHeight)};
}

QVector<TimelinePainter::Place> TimelinePainter::placesAt(const QPointF &position, const QPointF &offset) const
{
    QVector<Place> places;
    const QPointF point = position + offset;
    const int lane = static_cast<int>(std::floor((point.y() - m_headerHeight) / m_laneHeight));
    if (position.x() < m_labelWidth || position.y() < m_headerHeight || lane < 0 || lane >= m_timeline.lanes().size())
        return places;
    const QVector<TimelineEvent> &events = m_timeline.lanes().at(lane).events;
    for (int i = 0; i < events.size(); ++i) {
        if (std::abs(xAt(events.at(i).ms) - point.x()) <= 0.5 * m_line)
            places.append({lane, i});
    }
    return places;
}

} // namespace JwMonitor
