#pragma once

#include <QTableView>

/// The last row of a table that is fully visible; -1 if there is none. All rows have the same height.
inline int lastWholeRow(const QTableView *table)
{
    const int height = table->viewport()->height();
    return table->rowAt(height - height % table->rowHeight(0) - 1);
}
