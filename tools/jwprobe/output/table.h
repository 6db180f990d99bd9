#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace JwProbe {

/// Text in columns, two blanks apart, each as wide as its widest cell.
class Table
{
public:
    explicit Table(const QStringList &header);

    /// This column gives way, down to 8 characters, when the table would be wider than the terminal.
    void setShrinkable(int column) { m_shrinkable = column; }
    void setRightAligned(int column) { m_rightAligned = column; }

    /// Cells that are left out at the end stay empty. A `note` stands on a line of its own below the row, from the
    /// second column on.
    void addRow(const QStringList &cells, const QString &note = QString());

    /// Each row with its line end; at most `width` columns where that can be had, 0 for no limit.
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

/// `text` broken at blanks into lines of at most `width` characters, each line behind `indent` blanks but the first,
/// which follows what the caller wrote that far. 0 for no limit.
QString wrapped(const QString &text, int indent, int width);

/// Each of `lines` behind `indent` blanks and with its line end. Those with blanks in front, which are to be copied,
/// stay as they are; the others are broken as by wrapped().
QString linesText(const QStringList &lines, int indent, int width);

} // namespace JwProbe
