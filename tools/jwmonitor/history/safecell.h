#pragma once

#include <QString>

namespace JwMonitor {

/// Returns the cell with an apostrophe before it if a spreadsheet program would run the cell as a formula. A board
/// could send a harmful formula. With the apostrophe, the spreadsheet shows the cell as text. A number with a sign is
/// no formula.
QString safeCell(const QString &cell);

} // namespace JwMonitor
