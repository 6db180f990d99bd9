#pragma once

#include "timelinepainter.h"

#include <QAbstractScrollArea>
#include <QTimer>

namespace JwMonitor {

class ProbeTimeline;

/// A timeline on the screen: live, with what happened under the mouse or at the keyboard's mark in words.
class TimelineCanvas : public QAbstractScrollArea
{
    Q_OBJECT

public:
    /// `timeline` must outlive it.
    explicit TimelineCanvas(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineCanvas() override;

    /// 1: the whole search fits.
    void setZoom(double zoom);
    double zoom() const { return m_zoom; }
    /// Scrolls to the lane of `port`, if it has one.
    void showPort(const QString &port);
    /// All of it as it would look without bars: what is saved.
    QSizeF pictureSize() const;
    void paintPicture(QPainter &painter) const;

Q_SIGNALS:
    /// The event with the mark, in words; empty for none.
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
    QTimer m_clock; // of a search that runs: time itself moves the picture
    double m_zoom = 1;
    TimelinePainter::Place m_marked;
    int m_markedDropped = 0; // what the lane of the mark had dropped when it was set
};

} // namespace JwMonitor
