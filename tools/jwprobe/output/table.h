#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace JwProbe {

/// A table of text. Each column is as wide as its widest cell. Two blanks separate the columns.
class Table
{
public:
    explicit Table(const QStringList &header);

    /// Sets the column that toText() makes narrower if the table is too wide. The column keeps at least 8 characters.
    void setShrinkable(int column) { m_shrinkable = column; }
    void setRightAligned(int column) { m_rightAligned = column; }

    /// Adds a row. Missing cells at the end stay empty. `note` is printed on its own line below the row, from the
    /// second column on.
    void addRow(const QStringList &cells, const QString &note = QString());

    /// Returns the rows with their line ends. The rows are at most `width` characters wide if possible. If `width` is
    /// 0, there is no limit.
    QString toText(int width) const;

private:
    QVector<int> columnWidths(int width) const;
    QString rowText(const QStringList &cells, const QVector<int> &widths) const;

    struct Row
    {
        QStringList cells;
        QString note;
    };
    QVector<Row> m_rows; // the first row is the header
    int m_shrinkable = -1;
    int m_rightAligned = -1;
};

/// Breaks `text` at blanks into lines of at most `width` characters. If `width` is 0, there is no limit. Each line
/// except the first begins with `indent` blanks. The first line does not, because the caller has already written
/// `indent` characters in front of it.
QString wrapped(const QString &text, int indent, int width);

/// Returns `lines` as one text. Each line gets `indent` blanks in front and a line end. A line that begins with a blank
/// is a command and is not broken. Other lines are broken by wrapped().
QString linesText(const QStringList &lines, int indent, int width);

} // namespace JwProbe
