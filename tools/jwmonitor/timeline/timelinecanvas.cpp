#include "timelinecanvas.h"

#include "probetimeline.h"
#include <jwmonitor/look/qtversion.h>
#include <jwmonitor/look/tooltip.h>

#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace JwMonitor {

namespace {

constexpr int frameTime = 33; // ms between two updates of the view
constexpr double maxZoom = 1000;
constexpr double zoomStep = 1.5;
constexpr int maxDescribed = 20; // events that one tool tip describes at most

} // namespace

TimelineCanvas::TimelineCanvas(const ProbeTimeline *timeline, QWidget *parent)
    : QAbstractScrollArea(parent)
    , m_timeline(timeline)
{
    setAccessibleName(tr("Timeline of the search"));
    setFocusPolicy(Qt::StrongFocus);
    horizontalScrollBar()->setSingleStep(20);
    m_clock.setSingleShot(true);
    m_clock.setInterval(frameTime);
    connect(&m_clock, &QTimer::timeout, this, &TimelineCanvas::refresh);
    connect(m_timeline, &ProbeTimeline::changed, this, [this] {
        followMark(); // at once: Qt may paint before m_clock fires, and the marked event may be gone
        if (!m_clock.isActive())
            m_clock.start();
    });
    refresh();
}

TimelineCanvas::~TimelineCanvas() = default;

TimelinePainter TimelineCanvas::layoutNow() const
{
    return TimelinePainter(*m_timeline, palette(), font(), viewport()->width(), m_zoom);
}

QPointF TimelineCanvas::offset() const
{
    return QPointF(horizontalScrollBar()->value(), verticalScrollBar()->value());
}

void TimelineCanvas::refresh()
{
    if (m_timeline->isRunning())
        m_clock.start();
    const TimelinePainter painter = layoutNow();
    const QSizeF size = painter.size();
    verticalScrollBar()->setSingleStep(static_cast<int>(painter.laneHeight()));
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, std::max(0, static_cast<int>(std::ceil(size.height())) - viewport()->height()));
    horizontalScrollBar()->setPageStep(viewport()->width());
    horizontalScrollBar()->setRange(0, std::max(0, static_cast<int>(size.width()) - viewport()->width()));
    viewport()->update();
}

void TimelineCanvas::setZoom(double zoom)
{
    m_zoom = std::clamp(zoom, 1.0, maxZoom);
    refresh();
}

void TimelineCanvas::zoomAt(double factor, double x)
{
    const double ms = layoutNow().timeAt(x + horizontalScrollBar()->value());
    setZoom(m_zoom * factor);
    horizontalScrollBar()->setValue(static_cast<int>(layoutNow().xAt(ms) - x));
}

void TimelineCanvas::showPort(const QString &port)
{
    const QVector<TimelineLane> &lanes = m_timeline->lanes();
    for (int i = 0; i < lanes.size(); ++i) {
        if (lanes.at(i).port == port)
            verticalScrollBar()->setValue(static_cast<int>(i * layoutNow().laneHeight()));
    }
}

QSizeF TimelineCanvas::pictureSize() const
{
    return layoutNow().size();
}

void TimelineCanvas::paintPicture(QPainter &painter) const
{
    layoutNow().paint(painter, pictureSize(), QPointF(), {});
}

void TimelineCanvas::paintEvent(QPaintEvent *)
{
    QPainter painter(viewport());
    layoutNow().paint(painter, viewport()->size(), offset(), m_marked);
    if (m_timeline->lanes().isEmpty()) {
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(viewport()->rect(), Qt::AlignCenter,
                         m_timeline->wasStarted() ? tr("No port was tried")
                                                  : tr("No search yet: choose the boards and press Find"));
    }
}

void TimelineCanvas::resizeEvent(QResizeEvent *)
{
    refresh();
}

void TimelineCanvas::wheelEvent(QWheelEvent *event)
{
    if (event->modifiers() & Qt::ControlModifier) {
        zoomAt(std::pow(zoomStep, event->angleDelta().y() / 120.0), event->position().x());
        event->accept();
    } else {
        QAbstractScrollArea::wheelEvent(event);
    }
}

void TimelineCanvas::keyPressEvent(QKeyEvent *event)
{
    const double middle = viewport()->width() / 2.0;
    switch (event->key()) {
    case Qt::Key_Plus:
        zoomAt(zoomStep, middle);
        break;
    case Qt::Key_Minus:
        zoomAt(1 / zoomStep, middle);
        break;
    case Qt::Key_0:
        setZoom(1);
        break;
    case Qt::Key_Left:
        markNext(0, -1);
        break;
    case Qt::Key_Right:
        markNext(0, 1);
        break;
    case Qt::Key_Up:
        markNext(-1, 0);
        break;
    case Qt::Key_Down:
        markNext(1, 0);
        break;
    default:
        QAbstractScrollArea::keyPressEvent(event);
    }
}

void TimelineCanvas::mousePressEvent(QMouseEvent *event)
{
    const QVector<TimelinePainter::Place> places = layoutNow().placesAt(positionOf(event), offset());
    mark(places.isEmpty() ? TimelinePainter::Place() : places.first());
}

bool TimelineCanvas::viewportEvent(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QAbstractScrollArea::viewportEvent(event);
    auto *help = static_cast<QHelpEvent *>(event);
    const QString text = description(layoutNow().placesAt(help->pos(), offset()));
    QToolTip::showText(help->globalPos(), text.isEmpty() ? text : toolTipText(text), viewport());
    return true;
}

void TimelineCanvas::markNext(int lanes, int events)
{
    const QVector<TimelineLane> &all = m_timeline->lanes();
    TimelinePainter::Place place = m_marked;
    int lane = place.lane + (place.lane < 0 ? 1 : lanes);
    while (lane >= 0 && lane < all.size() && all[lane].events.isEmpty()) // skips lanes without events
        lane += lanes < 0 ? -1 : 1;
    if (lane < 0 || lane >= all.size())
        return;
    const auto last = static_cast<int>(all[lane].events.size()) - 1;
    place = {lane, std::clamp(place.event + (place.event < 0 ? 1 : events), 0, last)};
    mark(place);
    const QPointF at = layoutNow().position(place);
    const double left = layoutNow().xAt(0);
    if (at.x() - offset().x() < left || at.x() - offset().x() > viewport()->width())
        horizontalScrollBar()->setValue(static_cast<int>(at.x() - (left + viewport()->width()) / 2));
    const double top = lane * layoutNow().laneHeight();
    const double visible = viewport()->height() - layoutNow().headerHeight() - layoutNow().laneHeight();
    verticalScrollBar()->setValue(
        static_cast<int>(std::clamp(offset().y(), std::min(top, top - visible), std::max(top, top - visible))));
}

void TimelineCanvas::followMark()
{
    if (m_marked.lane < 0)
        return;
    const auto &lanes = m_timeline->lanes();
    const auto lane = std::find_if(lanes.begin(), lanes.end(), [this](const TimelineLane &candidate) {
        return candidate.startNs == m_markedStart;
    });
    if (lane != lanes.end()) {
        m_marked.lane = static_cast<int>(lane - lanes.begin());
        m_marked.event -= lane->dropped - m_markedDropped;
        m_markedDropped = lane->dropped;
        if (m_marked.event >= 0)
            return;
    }
    mark({});
}

void TimelineCanvas::mark(TimelinePainter::Place place)
{
    m_marked = place;
    if (place.lane >= 0) {
        const TimelineLane &lane = m_timeline->lanes().at(place.lane);
        m_markedStart = lane.startNs;
        m_markedDropped = lane.dropped;
    }
    const QString text = place.lane < 0 ? QString() : description({place});
    setAccessibleDescription(text);
    Q_EMIT described(text);
    viewport()->update();
}

QString TimelineCanvas::description(const QVector<TimelinePainter::Place> &places) const
{
    QStringList lines;
    for (const TimelinePainter::Place &place : places.mid(0, maxDescribed)) {
        const TimelineLane &lane = m_timeline->lanes().at(place.lane);
        const TimelineEvent &event = lane.events.at(place.event);
        QString line =
            tr("%1, %2 ms: %3").arg(lane.port, QString::number(event.ms, 'f', 1), ProbeTimeline::kindName(event.kind));
        if (event.round > 0)
            line += tr(" (retry %1)").arg(event.round);
        if (!event.text.isEmpty())
            line += QStringLiteral("  ") + event.text;
        lines.append(line);
    }
    if (places.size() > maxDescribed)
        lines.append(tr("and %n more", nullptr, static_cast<int>(places.size()) - maxDescribed));
    return lines.join(QLatin1Char('\n'));
}

} // namespace JwMonitor
