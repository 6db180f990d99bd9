#pragma once

#include <QJsonDocument>
#include <QString>

namespace JwProbe {

/// Writes `text` to standard output at once. False when that failed; standard error then has a line about it, once.
bool print(const QString &text);

/// `object` with its line end: all JSON that is printed comes from here. Characters that a terminal obeys, or that
/// change the order of the text around them, are escaped.
QString jsonText(const QJsonObject &object, QJsonDocument::JsonFormat format);

/// Writes "jwprobe: ", `text` and a line end to standard error.
void complain(const QString &text);

/// Columns of the terminal behind the file descriptor; 0 when there is none. A terminal that doesn't tell has 80.
int terminalWidth(int descriptor);

/// JwTools::printable(), and "-" for an empty text: a cell of a table.
QString orDash(const QString &text);

} // namespace JwProbe
