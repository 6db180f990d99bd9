#include "portsview.h"

#include "portrows.h"
#include "portsmodel.h"

#include <QEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QStyledItemDelegate>

namespace JwMonitor {

namespace {

/// Adds space to each cell. Without this space, the texts of two columns would touch.
class RoomyDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        return QStyledItemDelegate::sizeHint(option, index) + QSize(2 * option.fontMetrics.averageCharWidth(), 0);
    }
};

} // namespace

PortsView::PortsView(const PortRows *rows, QWidget *parent)
    : QTableView(parent)
    , m_rows(rows)
    , m_model(new PortsModel(this))
{
    m_model->setPalette(palette());
    setModel(m_model);
    setItemDelegate(new RoomyDelegate(this));
    setAccessibleName(tr("Ports and boards"));
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setTabKeyNavigation(false);
    verticalHeader()->hide();
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() * 3 / 2);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    horizontalHeader()->setSectionResizeMode(PortsModel::State, QHeaderView::Stretch);
    connect(m_rows, &PortRows::changed, this, &PortsView::refresh);
    connect(selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this](const QModelIndex &current) {
        Q_EMIT portChosen(current.isValid() ? m_model->entry(current.row()).port.name : QString());
    });
    refresh();
}

PortsView::~PortsView() = default;

void PortsView::refresh()
{
    m_model->setEntries(m_rows->ports());
}

void PortsView::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        m_model->setPalette(palette());
    QTableView::changeEvent(event);
}

} // namespace JwMonitor
