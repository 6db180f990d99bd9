#include "timelinepainter.h"

#include "probetimeline.h"
#include <jwmonitor/look/theme.h>

#include <QFontMetricsF>
#include <QLocale>
#include <QMap>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

using JwDevice::PortEvent;

namespace JwMonitor {

namespace {

constexpr double shortestProbe = 50; // ms; if all probes are shorter, they are drawn as if the longest took this long
constexpr int labelCharacters = 26;
constexpr int lastCharacters = 34; // space after the end of the longest probe, in characters, for the last sentence
constexpr int sentenceReach =
    100; // times the height of a row; no text is wider, so a text that begins farther left never reaches the view
constexpr int longestText = 200; // characters; sentences close together are joined until their text is this long
constexpr double leastGap = 1; // pixels; two waits, or two markers of one kind, that are closer are drawn as one
constexpr double leastRoundGap = 3; // pixels between the marks of two rounds; a closer mark is not drawn

/// Returns the ms between two marks of the axis: the smallest number that is at least `least` and is 1, 2 or 5 times a
/// power of ten.
double stepOf(double least)
{
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least)
            return factor * power;
    }
    return 10 * power;
}

bool endsWaiting(PortEvent::Kind kind)
{
    return kind == PortEvent::Answered || kind == PortEvent::TimedOut || kind == PortEvent::Lost
        || kind == PortEvent::HandedOver;
}

Theme::Role role(PortEvent::Kind kind)
{
    switch (kind) {
    case PortEvent::Opened:
    case PortEvent::TimedOut:
        return Theme::Quiet;
    case PortEvent::Asked:
        return Theme::Query;
    case PortEvent::Answered:
        return Theme::Reply;
    case PortEvent::Unreadable:
    case PortEvent::NotOpened:
    case PortEvent::Lost:
        return Theme::Problem;
    case PortEvent::HandedOver:
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
    , m_end(std::max(timeline.duration(), shortestProbe))
{
    const QFontMetricsF metrics(font);
    m_line = metrics.height();
    m_labelWidth = metrics.averageCharWidth() * labelCharacters;
    m_headerHeight = 1.6 * m_line;
    m_laneHeight = 3.2 * m_line;
    m_leftMargin = 0.5 * m_line; // so that the marks of events at 0 ms are visible
    m_rightMargin = metrics.averageCharWidth() * lastCharacters;
    m_scale = zoom * std::max(width - m_labelWidth - m_leftMargin - m_rightMargin, m_labelWidth) / m_end;
}

QSizeF TimelinePainter::size() const
{
    return {xAt(m_end) + m_rightMargin, m_headerHeight + m_laneHeight * static_cast<int>(m_timeline.lanes().size())};
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
    const int last =
        std::min(static_cast<int>(lanes.size()), static_cast<int>((offset.y() + size.height()) / m_laneHeight) + 1);
    for (int i = first; i < last; ++i)
        paintLane(painter, lanes.at(i), m_headerHeight + i * m_laneHeight, offset.x() + m_labelWidth,
                  offset.x() + size.width());
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
}

void TimelinePainter::paintLane(QPainter &painter, const TimelineLane &lane, double top, double left,
                                double right) const
{
    const double middle = top + m_laneHeight / 2;
    painter.setPen(Theme::colour(m_palette, Theme::Grid));
    painter.drawLine(QPointF(left, top), QPointF(right, top));
    paintRounds(painter, lane, top, left, right);
    paintSpans(painter, lane, middle, left, right);
    paintSentences(painter, lane, top, true, left, right);
    paintSentences(painter, lane, top, false, left, right);
    paintMarkers(painter, lane, middle, left, right);
}

QVector<TimelineEvent>::const_iterator TimelinePainter::eventFrom(const TimelineLane &lane, double x) const
{
    return std::lower_bound(lane.events.begin(), lane.events.end(), timeAt(x),
                            [](const TimelineEvent &event, double ms) { return event.ms < ms; });
}

void TimelinePainter::paintRounds(QPainter &painter, const TimelineLane &lane, double top, double left,
                                  double right) const
{
    painter.setPen(QPen(Theme::colour(m_palette, Theme::Query), 1, Qt::DashLine));
    double last = -leastRoundGap;
    auto event = eventFrom(lane, left);
    if (event == lane.events.begin() && event != lane.events.end())
        ++event; // the first event starts no retry round
    for (; event != lane.events.end(); ++event) {
        const double x = xAt(event->ms);
        if (x > right)
            break;
        if (event->round == (event - 1)->round || x - last < leastRoundGap)
            continue;
        last = x;
        painter.drawLine(QPointF(x, top), QPointF(x, top + m_laneHeight));
    }
}

void TimelinePainter::paintSpans(QPainter &painter, const TimelineLane &lane, double middle, double left,
                                 double right) const
{
    const double height = 0.42 * m_line;
    painter.setPen(Qt::NoPen);
    const auto span = [&](double from, double to, Theme::Role colourRole, double thickness) {
        QColor colour = Theme::colour(m_palette, colourRole);
        colour.setAlphaF(0.45F);
        painter.setBrush(colour);
        const double begin = std::max(xAt(from), left);
        const double end = std::min(xAt(to), right);
        if (begin < end)
            painter.drawRect(QRectF(begin, middle - thickness / 2, end - begin, thickness));
    };
    // A wait is the time from a query to its answer or time-out. Waits without a visible gap between them are drawn as
    // one rectangle, because drawing thousands of rectangles would take too long.
    double begin = 0;
    double end = -1; // end of the rectangle that is not drawn yet; -1 if there is none
    Theme::Role waitRole = Theme::Waiting;
    const auto flush = [&] {
        if (end >= begin)
            span(begin, end, waitRole, height);
        end = -1;
    };
    const auto addWait = [&](double from, double to, Theme::Role colourRole) {
        if (end < 0 || colourRole != waitRole || (from - end) * m_scale >= leastGap) {
            flush();
            begin = from;
            waitRole = colourRole;
        }
        end = to;
    };

    auto event = eventFrom(lane, left);
    while (event != lane.events.begin() && !endsWaiting((event - 1)->kind)) // a visible wait may begin left of the view
        --event;
    double asked = -1;
    for (; event != lane.events.end() && (asked >= 0 || xAt(event->ms) <= right); ++event) {
        if (event->kind == PortEvent::Asked && asked < 0) {
            asked = event->ms;
        } else if (asked >= 0 && endsWaiting(event->kind)) {
            addWait(asked, event->ms, event->kind == PortEvent::Answered ? Theme::Reply : Theme::Waiting);
            asked = -1;
        }
    }
    if (asked >= 0)
        addWait(asked, m_timeline.duration(lane), Theme::Waiting);
    flush();

    const auto found = std::find_if(lane.events.rbegin(), lane.events.rend(),
                                    [](const TimelineEvent &last) { return last.kind == PortEvent::HandedOver; });
    if (found != lane.events.rend())
        span(found->ms, m_end, Theme::Good, height / 4);
}

void TimelinePainter::paintSentences(QPainter &painter, const TimelineLane &lane, double top, bool sent, double left,
                                     double right) const
{
    const QFontMetricsF metrics(m_font);
    const double gap = 0.5 * m_line;
    const auto isShown = [sent](const TimelineEvent &event) {
        return !event.text.isEmpty() && event.kind != PortEvent::HandedOver && sent == (event.kind == PortEvent::Asked);
    };
    // Sentences at nearly the same time become one text. Each text is cut where the next text begins.
    double from = -1;
    QString text;
    QColor colour;
    const auto flush = [&](double to) {
        const double room = to - from - 2 * gap;
        if (text.isEmpty() || room < metrics.averageCharWidth())
            return;
        const QString shown = metrics.elidedText(text, Qt::ElideRight, room);
        painter.setPen(colour);
        if (shown.size() > 3)
            painter.drawText(QPointF(from + gap, sent ? top + 1.0 * m_line : top + 2.9 * m_line), shown);
    };
    const double reach = sentenceReach * m_line;
    for (auto event = eventFrom(lane, left - reach); event != lane.events.end(); ++event) {
        const double x = xAt(event->ms);
        if (x > right + reach)
            break;
        if (!isShown(*event))
            continue;
        if (!text.isEmpty() && x - from < gap) {
            if (text.size() < longestText)
                text += QLatin1String("  ") + event->text;
            continue;
        }
        flush(x);
        from = x;
        text = event->text;
        colour = Theme::colour(m_palette, role(event->kind));
    }
    flush(size().width());
}

void TimelinePainter::paintMarkers(QPainter &painter, const TimelineLane &lane, double middle, double left,
                                   double right) const
{
    QMap<PortEvent::Kind, double> last;
    for (auto event = eventFrom(lane, left - m_line); event != lane.events.end(); ++event) {
        const double x = xAt(event->ms);
        if (x > right + m_line)
            break;
        if (last.contains(event->kind) && x - last.value(event->kind) < leastGap)
            continue;
        last[event->kind] = x;
        paintMarker(painter, *event, middle);
    }
}

double TimelinePainter::eventY(const TimelineEvent &event, double middle) const
{
    switch (event.kind) {
    case PortEvent::Asked:
        return middle - 0.42 * m_line;
    case PortEvent::Answered:
    case PortEvent::Unreadable:
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
    case PortEvent::Opened:
        painter.setBrush(m_palette.color(QPalette::Base));
        painter.drawEllipse(centre, radius, radius);
        break;
    case PortEvent::Asked:
        painter.drawPolygon(triangle(centre + QPointF(radius, 0), radius, 1));
        break;
    case PortEvent::Answered:
        painter.drawPolygon(triangle(centre - QPointF(radius, 0), radius, -1));
        break;
    case PortEvent::Unreadable:
        painter.drawRect(QRectF(centre - QPointF(radius, radius), centre + QPointF(radius, radius)));
        break;
    case PortEvent::TimedOut:
        painter.drawLine(centre - QPointF(0, 1.6 * radius), centre + QPointF(0, 1.6 * radius));
        break;
    case PortEvent::NotOpened:
    case PortEvent::Lost:
        painter.drawLine(centre - QPointF(radius, radius), centre + QPointF(radius, radius));
        painter.drawLine(centre - QPointF(radius, -radius), centre + QPointF(radius, -radius));
        break;
    case PortEvent::HandedOver:
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
