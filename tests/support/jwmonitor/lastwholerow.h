#pragma once

#include <QTableView>

/// Returns the last fully visible row of a table whose rows all have the same height; -1 if no row is fully visible.
inline int lastWholeRow(const QTableView *table)
{
    const int height = table->viewport()->height();
    return table->rowAt(height - height % table->rowHeight(0) - 1);
}
