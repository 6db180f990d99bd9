#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace JwProbe {

/// A table of text. Columns are as wide as their widest cell, with two blanks between them.
class Table
{
public:
    explicit Table(const QStringList &header);

    /// If the table is wider than the terminal, this column shrinks, to 8 characters at least.
    void setShrinkable(int column) { m_shrinkable = column; }
    void setRightAligned(int column) { m_rightAligned = column; }

    /// Missing cells at the end stay empty. A `note` stands on its own line below the row, starting at the second
    /// column.
    void addRow(const QStringList &cells, const QString &note = QString());

    /// The rows with their line ends, at most `width` characters wide where possible; 0: no limit.
    QString toText(int width) const;

private:
    QVector<int> columnWidths(int width) const;
    QString rowText(const QStringList &cells, const QVector<int> &widths) const;

    struct Row
    {
        QStringList cells;
        QString note;
    };
    QVector<Row> m_rows; // the first is the header
    int m_shrinkable = -1;
    int m_rightAligned = -1;
};

/// Breaks `text` at blanks into lines of at most `width` characters; 0: no limit. Each line except the first begins
/// with `indent` blanks; the caller has written the start of the first line.
QString wrapped(const QString &text, int indent, int width);

/// Puts `indent` blanks before each of `lines` and a line end after it. A line that begins with a blank is a command
/// and stays whole; other lines are broken by wrapped().
QString linesText(const QStringList &lines, int indent, int width);

} // namespace JwProbe
