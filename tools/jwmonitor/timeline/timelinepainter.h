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

/// Draws a timeline. Each port has a lane (a horizontal strip). Time runs to the right, from the start of the port's
/// probe. The names of the ports stay visible on the left, and the axis stays visible on top.
class TimelinePainter
{
public:
    /// The index of a lane, and the index of an event in the lane.
    struct Place
    {
        int lane = -1;
        int event = -1;
    };

    /// `width` is the visible width. At `zoom` 1, the longest probe fits into `width`. `timeline` must outlive the
    /// painter.
    TimelinePainter(const ProbeTimeline &timeline, const QPalette &palette, const QFont &font, double width,
                    double zoom);

    /// Returns the size of the whole picture.
    QSizeF size() const;
    double laneHeight() const { return m_laneHeight; }
    double headerHeight() const { return m_headerHeight; }

    /// Draws the part of the picture that a view of `size`, scrolled by `offset`, shows. Draws a circle around the
    /// event `marked`, if there is one.
    void paint(QPainter &painter, const QSizeF &size, const QPointF &offset, Place marked) const;

    /// Returns the events near `position` in a view that is scrolled by `offset`. All are in the lane at `position`.
    QVector<Place> placesAt(const QPointF &position, const QPointF &offset) const;
    /// Returns the position of `place` in the unscrolled picture.
    QPointF position(Place place) const;
    /// Returns the time in ms at `x` in the unscrolled picture.
    double timeAt(double x) const { return (x - m_labelWidth - m_leftMargin) / m_scale; }
    double xAt(double ms) const { return m_labelWidth + m_leftMargin + ms * m_scale; }

private:
    void paintAxis(QPainter &painter, const QSizeF &size, double shift) const;
    /// Draws the part of a lane from `left` to `right`, in coordinates of the unscrolled picture.
    void paintLane(QPainter &painter, const TimelineLane &lane, double top, double left, double right) const;
    void paintRounds(QPainter &painter, const TimelineLane &lane, double top, double left, double right) const;
    void paintSpans(QPainter &painter, const TimelineLane &lane, double middle, double left, double right) const;
    void paintSentences(QPainter &painter, const TimelineLane &lane, double top, bool sent, double left,
                        double right) const;
    void paintMarkers(QPainter &painter, const TimelineLane &lane, double middle, double left, double right) const;
    void paintMarker(QPainter &painter, const TimelineEvent &event, double middle) const;
    void paintLabel(QPainter &painter, const TimelineLane &lane, double top) const;
    /// Returns the first event at `x` or to the right of `x`.
    QVector<TimelineEvent>::const_iterator eventFrom(const TimelineLane &lane, double x) const;
    double eventY(const TimelineEvent &event, double middle) const;

    const ProbeTimeline &m_timeline;
    const QPalette m_palette;
    const QFont m_font;
    double m_end; // duration of the longest probe so far, in ms
    double m_line; // height of a row of text, in pixels
    double m_labelWidth;
    double m_leftMargin;
    double m_rightMargin;
    double m_headerHeight;
    double m_laneHeight;
    double m_scale; // pixels per ms
};

} // namespace JwMonitor
