#pragma once

#include "timelinepainter.h"

#include <QAbstractScrollArea>
#include <QTimer>

namespace JwMonitor {

class ProbeTimeline;

/// Shows a timeline on the screen and follows a running search. Describes the event under the mouse and the event that
/// is marked by keys.
class TimelineCanvas : public QAbstractScrollArea
{
    Q_OBJECT

public:
    /// `timeline` must outlive it.
    explicit TimelineCanvas(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineCanvas() override;

    /// At 1 the whole search fits into the view.
    void setZoom(double zoom);
    double zoom() const { return m_zoom; }
    /// Scrolls to the lane of `port`, if it has one.
    void showPort(const QString &port);
    /// Paints the whole picture without scroll bars, for saving.
    QSizeF pictureSize() const;
    void paintPicture(QPainter &painter) const;

Q_SIGNALS:
    /// Describes the marked event; empty if the mark was removed.
    void described(const QString &text);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    bool viewportEvent(QEvent *event) override;

private:
    TimelinePainter layoutNow() const;
    QPointF offset() const;
    void refresh();
    void zoomAt(double factor, double x);
    void followMark();
    void mark(TimelinePainter::Place place);
    void markNext(int lanes, int events);
    QString description(const QVector<TimelinePainter::Place> &places) const;

    const ProbeTimeline *const m_timeline;
    QTimer m_clock; // moves the picture while a search runs
    double m_zoom = 1;
    TimelinePainter::Place m_marked;
    int m_markedDropped = 0; // TimelineLane::dropped of the marked lane when the mark was set
};

} // namespace JwMonitor
