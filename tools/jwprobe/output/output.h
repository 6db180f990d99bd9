#pragma once

#include <QJsonDocument>
#include <QString>

namespace JwProbe {

/// Writes `text` to standard output at once. Returns false if that fails; the first failure is also a line on standard
/// error.
bool print(const QString &text);

/// The text of `object`, with a line end. Use it for all JSON that is printed: it escapes the characters that control a
/// terminal or change the direction of text.
QString jsonText(const QJsonObject &object, QJsonDocument::JsonFormat format);

/// Writes "jwprobe: ", `text` and a line end to standard error.
void complain(const QString &text);

/// The columns of the terminal behind the file descriptor; 0 if it is no terminal; 80 if the terminal gives no number.
int terminalWidth(int descriptor);

/// A cell of a table: JwTools::printable(), or "-" for an empty text.
QString orDash(const QString &text);

} // namespace JwProbe
