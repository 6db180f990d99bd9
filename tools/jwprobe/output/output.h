#pragma once

#include <QJsonDocument>
#include <QString>

namespace JwProbe {

/// Writes `text` to standard output at once. Returns false if the write fails. At the first failure, also prints an
/// error on standard error.
bool print(const QString &text);

/// Prints on standard error that standard output can't be written, and the reason. Only the first call prints.
void complainOfOutput(const QString &reason);

/// Returns `object` as JSON text with a line end. Use this function for all JSON that is printed, because it escapes
/// the characters that control a terminal or change the direction of text.
QString jsonText(const QJsonObject &object, QJsonDocument::JsonFormat format);

/// Writes "jwprobe: ", `text` and a line end to standard error.
void complain(const QString &text);

/// Returns the number of columns of the terminal at `descriptor`, or 80 if the terminal does not report it. Returns 0
/// if `descriptor` is no terminal.
int terminalWidth(int descriptor);

/// Returns the text for a cell of a table: "-" if `text` is empty, else JwTools::printable(text).
QString orDash(const QString &text);

} // namespace JwProbe
