#pragma once

#include <QWidget>

class QComboBox;

namespace JwMonitor {

class PlotCanvas;
class PlotData;
class TrafficModel;

/// The plot with its controls: a curve for each port, of the payloads per second or of a numeric field.
class PlotView : public QWidget
{
    Q_OBJECT

public:
    explicit PlotView(TrafficModel *model, QWidget *parent = nullptr);
    ~PlotView() override;

private:
    void addFields();

    PlotData *const m_data;
    QComboBox *const m_quantity;
    QComboBox *const m_span;
    PlotCanvas *const m_canvas;
};

} // namespace JwMonitor
