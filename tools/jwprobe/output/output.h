#pragma once

#include <QDateTime>
#include <QJsonDocument>
#include <QString>

namespace JwProbe {

struct Options;

/// Writes `text` to standard output at once. Returns false if the write fails. At the first failure, also prints an
/// error on standard error.
bool print(const QString &text);

/// Prints on standard error that standard output can't be written, and the reason. Only the first call prints.
void complainOfOutput(const QString &reason);

/// Returns the local time of day at `time`, for example "09:05:01.250".
QString clockText(const QDateTime &time);

/// Returns the local time of day at `time` for a table, or the day if it is not today.
QString sinceText(const QDateTime &time);

/// Returns `time` with date and offset from UTC, as all JSON has it.
QString isoText(const QDateTime &time);

/// Returns the line that shows a payload at `time`.
QString payloadLine(const QDateTime &time, const QString &port, bool received, const QString &text);

/// Returns the word that JSON has for the direction of a payload.
QString directionName(bool received);

/// Returns `object` as JSON text with a line end. Use this function for all JSON that is printed, because it escapes
/// the characters that control a terminal or change the direction of text.
QString jsonText(const QJsonObject &object, QJsonDocument::JsonFormat format);

/// Writes "jwprobe: ", `text` and a line end to standard error.
void complain(const QString &text);

/// Returns the number of columns of the terminal at `descriptor`, or 80 if the terminal does not report it. Returns 0
/// if `descriptor` is no terminal.
int terminalWidth(int descriptor);

/// Returns the number of lines of the terminal at `descriptor`, or 24 if the terminal does not report it. Returns 0 if
/// `descriptor` is no terminal.
int terminalHeight(int descriptor);

/// Returns whether a line or a table can be drawn again and again on the terminal at `descriptor`. False if the log is
/// written to the same terminal, because log and table would mix.
bool isLiveTerminal(int descriptor, const Options &options);

/// Returns the text for a cell of a table: "-" if `text` is empty, else JwTools::printable(text).
QString orDash(const QString &text);

} // namespace JwProbe
