#include "trafficview.h"

#include "trafficmodel.h"
#include "traffictext.h"
#include "trafficwriter.h"
#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/look/labelled.h>

#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QToolBar>
#include <QToolButton>

namespace JwMonitor {

namespace {

/// Largest number of boards in the list of ports. There is a limit because a faulty device may have a new serial number
/// each time it is plugged in.
constexpr int mostBoards = 200;

} // namespace

TrafficView::TrafficView(TrafficModel *model, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_filter(new HistoryFilter(model, this))
    , m_portScan(new HistoryScan(model, this))
    , m_table(new HistoryTable)
    , m_port(new QComboBox)
    , m_direction(new QComboBox)
    , m_identifier(new QLineEdit)
    , m_text(new QLineEdit)
    , m_status(new QLabel)
    , m_message(new QLabel)
{
    createFilters();
    createTable();
    m_message->setObjectName(QStringLiteral("message"));
    m_message->setTextFormat(Qt::PlainText);
    m_status->setObjectName(QStringLiteral("status"));

    auto *filters = new QHBoxLayout;
    addLabelled(filters, tr("&Port:"), m_port);
    addLabelled(filters, tr("Directio&n:"), m_direction);
    addLabelled(filters, tr("&Identifier:"), m_identifier, 1);
    addLabelled(filters, tr("Te&xt:"), m_text, 2);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_status);
    bottom->addStretch();
    bottom->addWidget(m_message);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(createTools());
    layout->addLayout(filters);
    layout->addWidget(m_table);
    layout->addLayout(bottom);

    connect(m_portScan, &HistoryScan::reached, this, &TrafficView::addPorts);
    m_portScan->restart();
    for (const QAbstractItemModel *rows :
         {static_cast<QAbstractItemModel *>(m_model), static_cast<QAbstractItemModel *>(m_filter)}) {
        connect(rows, &QAbstractItemModel::rowsInserted, this, &TrafficView::updateStatus);
        connect(rows, &QAbstractItemModel::rowsRemoved, this, &TrafficView::updateStatus);
    }
    connect(m_filter, &QAbstractItemModel::modelReset, this, &TrafficView::updateStatus);
    updateStatus();
}

TrafficView::~TrafficView() = default;

void TrafficView::saveTo(const QString &fileName)
{
    QVector<TrafficRecord> records; // copies, because the model may drop rows while the file is written
    records.reserve(m_filter->rowCount());
    for (int row = 0; row < m_filter->rowCount(); ++row)
        records.append(m_model->record(m_filter->sourceRow(row)));
    auto *writer = new TrafficWriter(records, fileName, this);
    connect(writer, &TrafficWriter::saved, this, [this](const QString &name) {
        m_message->setText(tr("Saved %1").arg(name));
        Q_EMIT saved(name);
    });
    connect(writer, &TrafficWriter::failed, this, [this](const QString &message) {
        m_message->setText(message);
        Q_EMIT saveFailed(message);
    });
    m_message->setText(tr("Saving..."));
    writer->start();
}

void TrafficView::createFilters()
{
    m_port->setObjectName(QStringLiteral("port"));
    m_port->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_port->addItem(tr("All"));
    m_direction->setObjectName(QStringLiteral("direction"));
    m_direction->addItem(tr("Both"));
    for (const Direction direction : {Direction::Received, Direction::Sent})
        m_direction->addItem(TrafficText::direction(direction), static_cast<int>(direction));
    m_identifier->setObjectName(QStringLiteral("identifier"));
    m_identifier->setPlaceholderText(tr("begins with"));
    m_identifier->setClearButtonEnabled(true);
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setPlaceholderText(tr("payload contains"));
    m_text->setClearButtonEnabled(true);

    connect(m_port, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &TrafficView::applyFilter);
    connect(m_direction, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &TrafficView::applyFilter);
    connect(m_identifier, &QLineEdit::textChanged, this, &TrafficView::applyFilter);
    connect(m_text, &QLineEdit::textChanged, this, &TrafficView::applyFilter);
    connect(addKeys(QKeySequence::Find), &QAction::triggered, m_text,
            [this] { m_text->setFocus(Qt::ShortcutFocusReason); });
    connect(addKeys(QKeySequence::Cancel), &QAction::triggered, this, &TrafficView::clearFilter);
}

QToolBar *TrafficView::createTools()
{
    auto *tools = new QToolBar;
    tools->setToolButtonStyle(Qt::ToolButtonTextOnly);
    const auto addAction = [this, tools](const QString &name, const QString &text, const QKeySequence &keys) {
        QAction *action = addKeys(keys); // owned by the view: keys of a tool bar's action work only in the tool bar
        action->setObjectName(name);
        action->setText(text);
        action->setIconText(text); // without this, the button shows no underlined letter
        action->setToolTip(tr("%1 (%2)").arg(action->toolTip(), keys.toString(QKeySequence::NativeText)));
        tools->addAction(action);
        return action;
    };
    QAction *pause = addAction(QStringLiteral("pause"), tr("Pa&use"), tr("Ctrl+P"));
    pause->setCheckable(true);
    connect(pause, &QAction::toggled, this, [this](bool paused) {
        m_filter->setPaused(paused);
        updateStatus();
    });
    QAction *raw = addAction(QStringLiteral("raw"), tr("Ra&w"), tr("Ctrl+R"));
    raw->setCheckable(true);
    connect(raw, &QAction::toggled, this, &TrafficView::showRaw);
    QAction *save = addAction(QStringLiteral("save"), tr("Sav&e..."), QKeySequence::Save);
    connect(save, &QAction::triggered, this, &TrafficView::askAndSave);
    QAction *clear = addAction(QStringLiteral("clear"), tr("&Clear"), tr("Ctrl+L"));
    connect(clear, &QAction::triggered, m_model, &TrafficModel::clear);
    for (QAction *action : {pause, raw, save, clear}) {
        auto *button = qobject_cast<QToolButton *>(tools->widgetForAction(action));
        button->setFocusPolicy(Qt::TabFocus);
        button->setAutoRaise(false); // gives the button a frame like other buttons have
    }
    return tools;
}

QAction *TrafficView::addKeys(const QKeySequence &keys)
{
    auto *action = new QAction(this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(action);
    return action;
}

void TrafficView::createTable()
{
    m_table->setObjectName(QStringLiteral("payloads"));
    m_table->setAccessibleName(tr("Payloads"));
    m_table->setModel(m_filter);
    showRaw(false);
    setFocusProxy(m_table);
}

void TrafficView::applyFilter()
{
    const QString board = m_port->currentData().toString(); // empty for all
    const QVariant direction = m_direction->currentData();
    const QString identifier = m_identifier->text().trimmed();
    const QString text = m_text->text();
    m_filter->setTest([model = m_model, board, direction, identifier, text](int row) {
        const TrafficRecord &record = model->record(row);
        return (board.isEmpty() || record.key() == board)
            && (direction.isNull() || static_cast<int>(record.direction) == direction.toInt())
            && SentenceDecoder::identifier(record.payload).startsWith(identifier, Qt::CaseInsensitive)
            && record.payload.contains(text, Qt::CaseInsensitive);
    });
}

void TrafficView::clearFilter()
{
    m_port->setCurrentIndex(0);
    m_direction->setCurrentIndex(0);
    m_identifier->clear();
    m_text->clear();
}

void TrafficView::addPorts(int first, int last)
{
    for (int row = first; row <= last; ++row) {
        const TrafficRecord &record = m_model->record(row);
        if (!m_names.add(record))
            continue;
        if (record.port.size() > m_widest.size()) {
            m_widest = record.port;
            showColumns();
        }
        if (m_port->findData(record.key()) < 0)
            m_port->addItem(QString(), record.key());
        while (m_port->count() > 1 + mostBoards) { // the first item stands for all boards
            const int oldest = m_port->currentIndex() == 1 ? 2 : 1;
            m_names.remove(m_port->itemData(oldest).toString());
            m_port->removeItem(oldest);
        }
        for (int i = 1; i < m_port->count(); ++i)
            m_port->setItemText(i, m_names.name(m_port->itemData(i).toString()));
    }
}

void TrafficView::askAndSave()
{
    const QString fileName = QFileDialog::getSaveFileName(this, tr("Save payloads"), QStringLiteral("payloads.csv"),
                                                          tr("CSV files (*.csv);;Text files (*.txt)"));
    if (!fileName.isEmpty())
        saveTo(fileName);
}

void TrafficView::showRaw(bool raw)
{
    m_isRaw = raw;
    showColumns();
}

void TrafficView::showColumns()
{
    showTrafficColumns(m_table, m_isRaw ? TrafficColumn::Undecoded : TrafficColumn::Decoded, m_widest);
}

void TrafficView::updateStatus()
{
    const QString shown = QLocale().toString(m_filter->rowCount());
    const QString all = QLocale().toString(m_model->rowCount());
    QString text = shown == all ? tr("%1 payloads").arg(all) : tr("%1 of %2 payloads").arg(shown, all);
    if (m_filter->isPaused())
        text = tr("%1, paused").arg(text);
    m_status->setText(text);
}

} // namespace JwMonitor
