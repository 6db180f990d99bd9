#pragma once

#include "plotaxis.h"
#include "plotdata.h"

#include <QRectF>
#include <QTimer>
#include <QVector>
#include <QWidget>

#include <optional>

class QPainter;
class QPen;
class QPolygonF;

namespace JwMonitor {

/// Draws the curves of a PlotData. The user moves a cursor with the mouse or the keys Left and Right; the values at the
/// cursor are shown.
class PlotCanvas : public QWidget
{
    Q_OBJECT

public:
    explicit PlotCanvas(const PlotData *plotData, QWidget *parent = nullptr);
    ~PlotCanvas() override;

    /// Shows the samples of the last `seconds` seconds. If `seconds` is 0, shows all samples.
    void setSpan(int seconds);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    struct Curve;
    struct Frame;

    QVector<Curve> visibleCurves(qint64 *beginUs, qint64 *endUs) const;
    PlotAxis valueAxis(const QVector<Curve> &curves, int maxMarks) const;
    QPolygonF line(const Curve &curve, const Frame &frame) const;
    QString legendText(const Curve &curve, const Frame &frame) const;
    void paintLegend(QPainter &painter, const QVector<Curve> &curves, const Frame &frame) const;
    void paintAxes(QPainter &painter, const Frame &frame) const;
    void paintCursor(QPainter &painter, const Frame &frame) const;
    QRectF plotArea() const;
    QPen curvePen(int index) const;
    void setCursorAt(qreal x);

    const PlotData *const m_data;
    qint64 m_spanUs;
    int m_labelWidth; // width of the longest number beside the axis, in pixels
    QTimer m_refresh;
    std::optional<qreal> m_cursor; // from 0 (left edge) to 1 (right edge); empty if there is no cursor
};

} // namespace JwMonitor
