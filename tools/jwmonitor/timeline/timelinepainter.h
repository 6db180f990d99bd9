#pragma once

#include <QFont>
#include <QPalette>
#include <QPoint>
#include <QRectF>
#include <QSizeF>
#include <QVector>

class QPainter;

namespace JwMonitor {

class ProbeTimeline;
struct TimelineEvent;
struct TimelineLane;

/// Draws a timeline: a lane for each port, with time to the right. Scrolling moves neither the names on the left nor
/// the axis on top.
class TimelinePainter
{
public:
    /// Names one event by its lane and its index.
    struct Place
    {
        int lane = -1;
        int event = -1;
    };

    /// `width` is the visible width; at `zoom` 1 the whole search fits into it. `timeline` must outlive the painter.
    TimelinePainter(const ProbeTimeline &timeline, const QPalette &palette, const QFont &font, double width,
                    double zoom);

    /// The size of the whole picture.
    QSizeF size() const;
    double laneHeight() const { return m_laneHeight; }
    double headerHeight() const { return m_headerHeight; }

    /// Draws on a surface of `size`, scrolled by `offset`, with a mark around `marked`.
    void paint(QPainter &painter, const QSizeF &size, const QPointF &offset, Place marked) const;

    /// The events of one lane near `position` on such a surface.
    QVector<Place> placesAt(const QPointF &position, const QPointF &offset) const;
    /// The position of `place` in the unscrolled picture.
    QPointF position(Place place) const;
    /// The time in ms at `x` of the unscrolled picture.
    double timeAt(double x) const { return (x - m_labelWidth) / m_scale; }
    double xAt(double ms) const { return m_labelWidth + ms * m_scale; }

private:
    void paintAxis(QPainter &painter, const QSizeF &size, double shift) const;
    /// A part of the unscrolled picture.
    void paintLane(QPainter &painter, const TimelineLane &lane, double top, double left, double right) const;
    void paintSpans(QPainter &painter, const TimelineLane &lane, double middle, double left, double right) const;
    void paintSentences(QPainter &painter, const TimelineLane &lane, double top, bool sent, double left,
                        double right) const;
    void paintMarkers(QPainter &painter, const TimelineLane &lane, double middle, double left, double right) const;
    void paintMarker(QPainter &painter, const TimelineEvent &event, double middle) const;
    void paintLabel(QPainter &painter, const TimelineLane &lane, double top) const;
    /// The first event at `x` or to the right of it.
    QVector<TimelineEvent>::const_iterator eventFrom(const TimelineLane &lane, double x) const;
    double eventY(const TimelineEvent &event, double middle) const;

    const ProbeTimeline &m_timeline;
    const QPalette m_palette;
    const QFont m_font;
    double m_end; // how long the search has taken so far, in ms
    double m_line; // height of a line of text
    double m_labelWidth;
    double m_rightMargin;
    double m_headerHeight;
    double m_laneHeight;
    double m_scale; // pixels for each ms
};

} // namespace JwMonitor
