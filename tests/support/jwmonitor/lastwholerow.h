#pragma once

#include <QTableView>

/// The last row of a table that is seen from its top to its bottom; -1 when none is. The rows are of one height.
inline int lastWholeRow(const QTableView *table)
{
    const int height = table->viewport()->height();
    return table->rowAt(height - height % table->rowHeight(0) - 1);
}
