#pragma once

#include <QWidget>

class QComboBox;

namespace JwMonitor {

class PlotCanvas;
class PlotData;
class TrafficModel;

/// Shows the plot and its controls. The plot has one curve for each board. The user chooses the quantity: the payloads
/// per second, or a numeric field.
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
