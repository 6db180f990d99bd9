#include "report.h"

#include "board.h"
#include "boardtype.h"
#include "output.h"
#include "portlist.h"
#include "searchresult.h"
#include "table.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>

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
            table.addRow({typeName(type), QStringLiteral("missing")});
            continue;
        }
        const PortIdentity &port = board->port();
        table.addRow({typeName(type), port.name, orDash(port.manufacturer), orDash(port.serialNumber),
                      orDash(board->reply().hardwareVersion), timeText(board->milliseconds())},
                     board->isConnected() ? QString() : QStringLiteral("its cable was pulled since"));
    }
    return table.toText(width);
}

// What can be done about missing boards besides what is said about the single ports.
QStringList generalAdvice(const SearchResult &result)
{
    if (result.missing.isEmpty())
        return {};
    if (!result.hasCandidates()) {
        return {QStringLiteral("No candidate port: no serial port has %1.").arg(candidateRule()),
                QStringLiteral("Plug the board in and check its cable: some cables only charge."),
                QStringLiteral("\"jwprobe --list\" shows every port, \"jwprobe --port NAME\" tries one.")};
    }
    QStringList advice;
    if (result.others.isEmpty()) {
        advice.append(QStringLiteral("Every port that was probed holds one of the boards found. Plug the missing ones "
                                     "in; \"jwprobe --list\" shows every port."));
    }
    if (result.deadlineReached) {
        const auto keepsOpen = [](const Diagnosis &port) {
            return port.state == QLatin1String("otherType") || port.state == QLatin1String("unknownBoard");
        };
        advice.append(
            std::any_of(result.others.begin(), result.others.end(), keepsOpen)
                ? QStringLiteral("The search waited for its deadline, since a port had answered, but not as a "
                                 "wanted board. --deadline makes it shorter.")
                : QStringLiteral("The deadline ended the search. --deadline gives it more time."));
    }
    return advice;
}

QString portText(const Diagnosis &port, int nameWidth, bool withAdvice, int width)
{
    const int indent = nameWidth + 4;
    const QString blanks(indent, QLatin1Char(' '));
    QString text =
        QStringLiteral("  %1  %2\n").arg(port.port.name, -nameWidth).arg(wrapped(port.summary, indent, width));
    if (!withAdvice)
        return text;
    for (const QString &line : port.advice) {
        const bool isToCopy = line.startsWith(QLatin1Char(' '));
        text += blanks + (isToCopy ? line : wrapped(line, indent, width)) + QLatin1Char('\n');
    }
    return text;
}

QString othersText(const SearchResult &result, int width)
{
    if (result.others.isEmpty())
        return QString();
    const bool isMissing = !result.missing.isEmpty();
    QString text = isMissing ? QStringLiteral("\n%1 not found. What the other ports did:\n")
                                   .arg(typeNames(result.missing, QStringLiteral("and")))
                             : QStringLiteral("\nOther ports:\n");
    int nameWidth = 0;
    for (const Diagnosis &port : result.others)
        nameWidth = std::max(nameWidth, port.port.name.size());
    for (const Diagnosis &port : result.others)
        text += portText(port, nameWidth, isMissing, width);
    return text;
}

QJsonObject boardJson(const Board &board)
{
    QJsonObject object = board.port().toJson();
    object[QLatin1String("type")] = typeName(board.type());
    object[QLatin1String("hardwareVersion")] = orNull(board.reply().hardwareVersion);
    object[QLatin1String("reply")] = orNull(board.reply().text);
    object[QLatin1String("milliseconds")] = tenths(board.milliseconds());
    object[QLatin1String("connected")] = board.isConnected();
    return object;
}

QJsonObject portJson(const Diagnosis &port)
{
    QJsonObject object = port.port.toJson();
    object[QLatin1String("state")] = port.state;
    object[QLatin1String("summary")] = port.summary;
    object[QLatin1String("advice")] = QJsonArray::fromStringList(port.advice);
    return object;
}

QJsonArray typesJson(const QList<JwDevice::Type> &types)
{
    QJsonArray array;
    for (const JwDevice::Type type : types)
        array.append(typeName(type));
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
    for (const Diagnosis &port : result.others)
        ports.append(portJson(port));
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
