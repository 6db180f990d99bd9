#pragma once

#include <QWidget>

class QLabel;

namespace JwMonitor {

class ProbeTimeline;
class TimelineCanvas;

/// Shows the timeline, its legend, and the buttons for zooming and saving.
class TimelineView : public QWidget
{
    Q_OBJECT

public:
    /// `timeline` must outlive the view.
    explicit TimelineView(const ProbeTimeline *timeline, QWidget *parent = nullptr);
    ~TimelineView() override;

    /// Saves the whole picture: as SVG if the name ends with ".svg", as PNG if the name ends with ".png". Returns an
    /// empty text on success, else the error.
    QString saveTo(const QString &fileName) const;
    TimelineCanvas *canvas() const { return m_canvas; }

public Q_SLOTS:
    /// Asks the user for a file name, then saves the picture.
    void askAndSave();

private:
    void showLegend();

    TimelineCanvas *const m_canvas;
    QLabel *const m_hint;
};

} // namespace JwMonitor
