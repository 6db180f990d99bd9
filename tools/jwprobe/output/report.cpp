#include "report.h"

#include "output.h"
#include "table.h"
#include <common/boardtype.h>
#include <jwprobe/search/board.h>
#include <jwprobe/search/portlist.h>
#include <jwprobe/search/searchresult.h>

#include <QJsonArray>
#include <QMetaEnum>

#include <algorithm>
#include <cmath>

using JwDevice::PortReport;

namespace JwProbe {

namespace {

double tenths(double milliseconds)
{
    return std::round(milliseconds * 10) / 10;
}

QString timeText(double milliseconds)
{
    return QStringLiteral("%1 ms").arg(milliseconds, 0, 'f', 1);
}

QString boardTable(const SearchResult &result, int width)
{
    Table table({QStringLiteral("TYPE"), QStringLiteral("PORT"), QStringLiteral("MANUFACTURER"),
                 QStringLiteral("SERIAL"), QStringLiteral("HARDWARE"), QStringLiteral("TIME")});
    table.setShrinkable(2);
    table.setRightAligned(5);
    for (const JwDevice::Type type : result.wanted) {
        const Board *board = result.board(type);
        if (!board) {
            table.addRow({JwTools::boardName(type), QStringLiteral("missing")});
            continue;
        }
        const PortIdentity &port = board->port();
        table.addRow({JwTools::boardName(type), port.name, orDash(port.manufacturer), orDash(port.serialNumber),
                      orDash(board->hardwareVersion()), timeText(board->milliseconds())},
                     board->isConnected() ? QString() : QStringLiteral("lost since: %1").arg(board->lossText()));
    }
    return table.toText(width);
}

// Returns the advice that follows the table if boards are missing. Advice about a single port is in its Diagnosis.
QStringList generalAdvice(const SearchResult &result)
{
    if (result.missing.isEmpty())
        return {};
    if (!result.hasCandidates()) {
        return noCandidateAdvice(result.choice)
            + QStringList{QStringLiteral("Plug the board in and check its cable: some cables only charge."),
                          QStringLiteral("\"jwprobe --list\" shows every port, \"jwprobe --port NAME\" tries one.")};
    }
    QStringList advice;
    if (result.others.isEmpty()) {
        advice.append(QStringLiteral("Every port that was probed holds one of the boards found. Plug the missing ones "
                                     "in; \"jwprobe --list\" shows every port."));
    }
    if (result.deadlineReached) {
        // A board of another type made the search wait even if its cable was pulled later. The verdict of its port is
        // then Lost. So this code checks the reply, not the verdict.
        const auto keepsOpen = [](const Diagnosis &port) {
            return !port.report.reply.isEmpty() && port.report.type == JwDevice::Unknown;
        };
        advice.append(
            std::any_of(result.others.begin(), result.others.end(), keepsOpen)
                ? QStringLiteral("The search waited until its deadline, because a port answered, but not as a "
                                 "wanted board. --deadline makes the search shorter.")
                : QStringLiteral("The deadline ended the search. --deadline gives it more time."));
    }
    return advice;
}

QString portText(const Diagnosis &port, int nameWidth, bool withAdvice, int width)
{
    const int indent = nameWidth + 4;
    const QString text =
        QStringLiteral("  %1  %2\n").arg(port.port.name, -nameWidth).arg(wrapped(port.summary, indent, width));
    return withAdvice ? text + linesText(port.advice, indent, width) : text;
}

QString othersText(const SearchResult &result, int width)
{
    if (result.others.isEmpty())
        return QString();
    const bool isMissing = !result.missing.isEmpty();
    QString text = isMissing ? QStringLiteral("\n%1 not found. What the other ports did:\n")
                                   .arg(JwTools::boardNames(result.missing, QStringLiteral("and")))
                             : QStringLiteral("\nOther ports:\n");
    int nameWidth = 0;
    for (const Diagnosis &port : result.others)
        nameWidth = std::max(nameWidth, static_cast<int>(port.port.name.size()));
    for (const Diagnosis &port : result.others)
        text += portText(port, nameWidth, isMissing, width);
    return text;
}

// Returns Qt's name of the error, for example "PermissionError". Empty for NoError.
QString errorName(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError)
        return QString();
    return QString::fromLatin1(QMetaEnum::fromType<QSerialPort::SerialPortError>().valueToKey(error));
}

// Returns a JSON object with the keys that found boards and other ports have in common.
QJsonObject portJson(const PortIdentity &port, const PortReport &report)
{
    QJsonObject object = port.toJson();
    object[QLatin1String("product")] = orNull(report.product);
    object[QLatin1String("verdict")] = verdictName(report.verdict);
    object[QLatin1String("error")] = orNull(errorName(report.error));
    object[QLatin1String("errorText")] = orNull(report.errorText);
    object[QLatin1String("reply")] = orNull(report.reply);
    object[QLatin1String("unreadable")] = orNull(report.unreadable);
    object[QLatin1String("queries")] = report.queries;
    object[QLatin1String("payloads")] = report.payloads;
    return object;
}

QJsonObject boardJson(const Board &board)
{
    QJsonObject object = portJson(board.port(), board.report());
    object[QLatin1String("type")] = JwTools::boardName(board.type());
    object[QLatin1String("hardwareVersion")] = orNull(board.hardwareVersion());
    object[QLatin1String("milliseconds")] = tenths(board.milliseconds());
    object[QLatin1String("connected")] = board.isConnected();
    return object;
}

QJsonObject otherJson(const Diagnosis &other)
{
    QJsonObject object = portJson(other.port, other.report);
    object[QLatin1String("state")] = other.state;
    object[QLatin1String("summary")] = other.summary;
    object[QLatin1String("advice")] = QJsonArray::fromStringList(other.advice);
    return object;
}

QJsonArray typesJson(const QList<JwDevice::Type> &types)
{
    QJsonArray array;
    for (const JwDevice::Type type : types)
        array.append(JwTools::boardName(type));
    return array;
}

} // namespace

QString reportText(const SearchResult &result, int width)
{
    QString text = boardTable(result, width) + othersText(result, width);
    const QStringList advice = generalAdvice(result);
    if (!advice.isEmpty())
        text += QLatin1Char('\n');
    for (const QString &line : advice)
        text += wrapped(line, 0, width) + QLatin1Char('\n');
    return text;
}

QJsonObject reportJson(const SearchResult &result)
{
    QJsonArray boards;
    for (const JwDevice::Type type : result.wanted) {
        if (const Board *board = result.board(type))
            boards.append(boardJson(*board));
    }
    QJsonArray ports;
    for (const Diagnosis &other : result.others)
        ports.append(otherJson(other));
    return {{QStringLiteral("version"), QStringLiteral(JWPROBE_VERSION)},
            {QStringLiteral("wanted"), typesJson(result.wanted)},
            {QStringLiteral("missing"), typesJson(result.missing)},
            {QStringLiteral("boards"), boards},
            {QStringLiteral("ports"), ports},
            {QStringLiteral("advice"), QJsonArray::fromStringList(generalAdvice(result))},
            {QStringLiteral("deadlineReached"), result.deadlineReached},
            {QStringLiteral("milliseconds"), tenths(result.milliseconds)},
            {QStringLiteral("exitStatus"), result.exitStatus()}};
}

} // namespace JwProbe
