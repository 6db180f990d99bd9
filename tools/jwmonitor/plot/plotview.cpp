#include "plotview.h"

#include "plotcanvas.h"
#include "plotdata.h"
#include <jwmonitor/look/labelled.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QComboBox>

namespace JwMonitor {

PlotView::PlotView(TrafficModel *model, QWidget *parent)
    : QWidget(parent)
    , m_data(new PlotData(model, this))
    , m_quantity(new QComboBox)
    , m_span(new QComboBox)
    , m_canvas(new PlotCanvas(m_data))
{
    m_quantity->setObjectName(QStringLiteral("quantity"));
    m_quantity->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_quantity->addItem(tr("Payloads per second"));
    m_span->setObjectName(QStringLiteral("span"));
    m_span->addItem(tr("Last 10 seconds"), 10);
    m_span->addItem(tr("Last minute"), 60);
    m_span->addItem(tr("Last 10 minutes"), 600);
    m_span->addItem(tr("All"), 0);
    m_canvas->setObjectName(QStringLiteral("canvas"));
    m_canvas->setAccessibleName(tr("Plot"));

    auto *controls = new QHBoxLayout;
    addLabelled(controls, tr("&Plot:"), m_quantity);
    addLabelled(controls, tr("Ti&me:"), m_span);
    controls->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(controls);
    layout->addWidget(m_canvas, 1);

    connect(m_data, &PlotData::fieldAdded, this, &PlotView::addFields);
    connect(m_quantity, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int index) {
        m_data->setQuantity(index == 0 ? PlotQuantity() : m_data->fields()[index - 1]);
        m_canvas->update();
    });
    connect(m_span, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { m_canvas->setSpan(m_span->currentData().toInt()); });
    addFields();
    setFocusProxy(m_quantity);
    m_span->setCurrentIndex(1);
}

PlotView::~PlotView() = default;

void PlotView::addFields()
{
    while (m_quantity->count() - 1 < m_data->fields().size())
        m_quantity->addItem(m_data->fieldName(m_data->fields()[m_quantity->count() - 1]));
}

} // namespace JwMonitor
