#include "historytable.h"

#include "safecell.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QKeyEvent>
#include <QScrollBar>

#include <algorithm>

namespace JwMonitor {

namespace {

constexpr int maxCopiedRows = 10000; // with more rows, the window would stop visibly while it copies

// Returns the cell in a form that is safe to paste into a spreadsheet. The spreadsheet may remove a quote at the start
// of the cell and then find a formula, so a quote also gets an apostrophe.
QString pastableCell(const QString &cell)
{
    return cell.startsWith(QLatin1Char('"')) ? QLatin1Char('\'') + cell : safeCell(cell);
}

} // namespace

HistoryTable::HistoryTable(QWidget *parent)
    : QTableView(parent)
    , m_following(true)
{
    setSelectionBehavior(SelectRows);
    setEditTriggers(NoEditTriggers);
    setTabKeyNavigation(false); // so that the key Tab leaves the table
    setWordWrap(false);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setVerticalScrollMode(ScrollPerItem);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() * 4 / 3);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

HistoryTable::~HistoryTable() = default;

void HistoryTable::setModel(QAbstractItemModel *newModel)
{
    QTableView::setModel(newModel);
    connect(newModel, &QAbstractItemModel::rowsAboutToBeInserted, this, [this] { m_following = isAtEnd(); });
    connect(newModel, &QAbstractItemModel::rowsInserted, this, [this] {
        if (m_following)
            scrollToBottom();
    });
    connect(newModel, &QAbstractItemModel::rowsRemoved, this, [this](const QModelIndex &, int first, int last) {
        if (!m_following)
            verticalScrollBar()->setValue(verticalScrollBar()->value() - (last - first + 1));
    });
}

void HistoryTable::setColumnTexts(const QStringList &texts)
{
    const int margin = 2 * style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + fontMetrics().averageCharWidth() * 2;
    for (int column = 0; column < texts.size(); ++column) {
        const int content = fontMetrics().horizontalAdvance(texts[column]) + margin;
        setColumnWidth(column, std::max(content, horizontalHeader()->sectionSizeHint(column)));
    }
}

void HistoryTable::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Copy))
        copySelected();
    else
        QTableView::keyPressEvent(event);
}

void HistoryTable::resizeEvent(QResizeEvent *event)
{
    const bool following = isAtEnd();
    QTableView::resizeEvent(event);
    if (following)
        scrollToBottom();
}

void HistoryTable::scrollContentsBy(int dx, int dy)
{
    QTableView::scrollContentsBy(dx, dy);
    alignTopRow();
}

void HistoryTable::updateGeometries()
{
    QTableView::updateGeometries();
    alignTopRow();
}

void HistoryTable::rowsAboutToBeRemoved(const QModelIndex &parent, int start, int end)
{
    m_following = isAtEnd();
    if (currentIndex().isValid() && currentIndex().row() <= end)
        selectionModel()->clearCurrentIndex(); // without this, the view scrolls to the row that becomes current
    QTableView::rowsAboutToBeRemoved(parent, start, end);
}

bool HistoryTable::isAtEnd() const
{
    return verticalScrollBar()->value() == verticalScrollBar()->maximum();
}

// At the end of the table, the base class aligns the last row with the bottom and cuts off a part of the top row. This
// function moves the rows so that the top row is whole.
void HistoryTable::alignTopRow()
{
    const int offset = verticalHeader()->offset();
    verticalHeader()->setOffsetToSectionPosition(verticalScrollBar()->value());
    if (verticalHeader()->offset() != offset)
        viewport()->update();
}

void HistoryTable::copySelected() const
{
    QModelIndexList rows = selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    const int count = std::min(static_cast<int>(rows.size()), maxCopiedRows);
    QStringList lines;
    for (int i = 0; i < count; ++i) {
        QStringList cells;
        for (int column = 0; column < model()->columnCount(); ++column) {
            if (!isColumnHidden(column))
                cells.append(pastableCell(rows[i].siblingAtColumn(column).data().toString()));
        }
        lines.append(cells.join(QLatin1Char('\t')));
    }
    if (rows.size() > count)
        lines.append(tr("(%n more: save them to a file instead)", nullptr, static_cast<int>(rows.size()) - count));
    if (!lines.isEmpty())
        QApplication::clipboard()->setText(lines.join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

} // namespace JwMonitor
