#pragma once

#include <QWidget>

class QLabel;

namespace JwMonitor {

class ProbeTimeline;
class TimelineCanvas;

/// The timeline of the newest search, with what belongs to it: legend, zoom, saving.
class TimelineView : public QWidget
{
    Q_OBJECT

public:
    /// `timeline` must outlive it.
    explicit TimelineView(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineView() override;

    /// Saves the whole picture: as SVG when the name ends with ".svg", as PNG when with ".png". Returns what went
    /// wrong; empty for nothing.
    QString saveTo(const QString &fileName) const;
    TimelineCanvas *canvas() const { return m_canvas; }

public Q_SLOTS:
    /// Asks for a name first.
    void askAndSave();

private:
    void showLegend();

    TimelineCanvas *const m_canvas;
    QLabel *const m_hint;
};

} // namespace JwMonitor
