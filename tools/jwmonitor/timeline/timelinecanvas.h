#pragma once

#include "timelinepainter.h"

#include <QAbstractScrollArea>
#include <QTimer>

namespace JwMonitor {

class ProbeTimeline;

/// Shows a timeline on the screen and updates it while a probe runs. A tool tip describes the event under the mouse.
/// The user can mark an event with the mouse or the keys; the signal described() then describes it.
class TimelineCanvas : public QAbstractScrollArea
{
    Q_OBJECT

public:
    /// `timeline` must outlive the canvas.
    explicit TimelineCanvas(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineCanvas() override;

    /// Sets the zoom factor. With 1, the longest probe fits into the width of the view.
    void setZoom(double zoom);
    double zoom() const { return m_zoom; }
    /// Scrolls to the lane of `port`. Does nothing if the timeline has no such lane.
    void showPort(const QString &port);
    /// Returns the size of the whole timeline, as paintPicture() paints it for a saved picture.
    QSizeF pictureSize() const;
    void paintPicture(QPainter &painter) const;

Q_SIGNALS:
    /// Emitted when another event is marked; `text` describes the event. `text` is empty if the mark was removed.
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
    QTimer m_clock; // updates the view while a probe runs
    double m_zoom = 1;
    TimelinePainter::Place m_marked;
    qint64 m_markedStart = 0; // startNs of the marked lane, because the lane's index may change
    int m_markedDropped = 0; // the value of TimelineLane::dropped for which the index m_marked.event is right
};

} // namespace JwMonitor
