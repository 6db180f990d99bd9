#include "table.h"

#include <algorithm>
#include <numeric>

namespace JwProbe {

namespace {

constexpr int gap = 2;
constexpr int shrunkWidth = 8;

} // namespace

Table::Table(const QStringList &header)
{
    addRow(header);
}

void Table::addRow(const QStringList &cells, const QString &note)
{
    m_rows.append({cells, note});
}

QString Table::toText(int width) const
{
    const QVector<int> widths = columnWidths(width);
    const int indent = widths.first() + gap;
    QString text;
    for (const Row &row : m_rows) {
        text += rowText(row.cells, widths) + QLatin1Char('\n');
        if (!row.note.isEmpty())
            text += QString(indent, QLatin1Char(' ')) + wrapped(row.note, indent, width) + QLatin1Char('\n');
    }
    return text;
}

QVector<int> Table::columnWidths(int width) const
{
    QVector<int> widths(m_rows.first().cells.size(), 0);
    for (const Row &row : m_rows) {
        for (int i = 0; i < row.cells.size(); ++i)
            widths[i] = std::max(widths[i], static_cast<int>(row.cells[i].size()));
    }
    const int total = std::accumulate(widths.begin(), widths.end(), gap * static_cast<int>(widths.size() - 1));
    if (width > 0 && total > width && m_shrinkable >= 0 && widths[m_shrinkable] > shrunkWidth)
        widths[m_shrinkable] = std::max(shrunkWidth, widths[m_shrinkable] - (total - width));
    return widths;
}

QString Table::rowText(const QStringList &cells, const QVector<int> &widths) const
{
    QString text;
    for (int i = 0; i < cells.size(); ++i) {
        QString cell = cells[i];
        if (cell.size() > widths[i])
            cell = cell.left(widths[i] - 2) + QLatin1String("..");
        text += i == m_rightAligned ? cell.rightJustified(widths[i]) : cell.leftJustified(widths[i]);
        text += QString(gap, QLatin1Char(' '));
    }
    while (text.endsWith(QLatin1Char(' ')))
        text.chop(1);
    return text;
}

QString wrapped(const QString &text, int indent, int width)
{
    if (width <= 0)
        return text;
    QString result;
    QString::size_type column = indent;
    const QStringList words = text.split(QLatin1Char(' '));
    for (const QString &word : words) {
        if (column > indent && column + 1 + word.size() > width) {
            result += QLatin1Char('\n') + QString(indent, QLatin1Char(' '));
            column = indent;
        } else if (column > indent) {
            result += QLatin1Char(' ');
            ++column;
        }
        result += word;
        column += word.size();
    }
    return result;
}

QString linesText(const QStringList &lines, int indent, int width)
{
    const QString blanks(indent, QLatin1Char(' '));
    QString text;
    for (const QString &line : lines) {
        const bool isToCopy = line.startsWith(QLatin1Char(' '));
        text += blanks + (isToCopy ? line : wrapped(line, indent, width)) + QLatin1Char('\n');
    }
    return text;
}

} // namespace JwProbe
