#include "safecell.h"

#include <QRegularExpression>

namespace JwMonitor {

namespace {

bool isFormula(const QString &cell)
{
    static const QRegularExpression number(
        QStringLiteral("^[+-](?:[0-9]+\\.?[0-9]*|\\.[0-9]+)(?:[eE][+-]?[0-9]+)?\\z"));
    return !cell.isEmpty() && QStringLiteral("=+-@\t\r").contains(cell.at(0)) && !number.match(cell).hasMatch();
}

} // namespace

QString safeCell(const QString &cell)
{
    return isFormula(cell) ? QLatin1Char('\'') + cell : cell;
}

} // namespace JwMonitor
