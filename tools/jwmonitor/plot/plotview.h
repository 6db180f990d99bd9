#pragma once

#include <QWidget>

class QComboBox;

namespace JwMonitor {

class PlotCanvas;
class PlotData;
class TrafficModel;

/// Curves over time, one per port: payloads per second, or a field of a sentence whose values are numbers.
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
