#pragma once

#include <QWidget>

class QLabel;

namespace JwMonitor {

class ProbeTimeline;
class TimelineCanvas;

/// The timeline of the newest search with its legend and the buttons for zoom and saving.
class TimelineView : public QWidget
{
    Q_OBJECT

public:
    /// `timeline` must outlive it.
    explicit TimelineView(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineView() override;

    /// Saves the whole picture, as SVG if the name ends with ".svg", as PNG if with ".png". Returns an error text;
    /// empty on success.
    QString saveTo(const QString &fileName) const;
    TimelineCanvas *canvas() const { return m_canvas; }

public Q_SLOTS:
    /// Asks for a file name, then saves.
    void askAndSave();

private:
    void showLegend();

    TimelineCanvas *const m_canvas;
    QLabel *const m_hint;
};

} // namespace JwMonitor
