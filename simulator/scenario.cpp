#include "scenario.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace JwSimulator {

namespace {

std::optional<QList<BoardConfig>> readBoards(const QString &fileName, QString &fault)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        fault = QStringLiteral("cannot read: %1").arg(file.errorString());
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (document.isNull()) {
        fault = QStringLiteral("not JSON: %1 at byte %2").arg(parseError.errorString()).arg(parseError.offset);
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    if (object.keys() != QStringList{QStringLiteral("boards")} || !object.value(QLatin1String("boards")).isArray()) {
        fault = QStringLiteral("must be an object of the form {\"boards\": [{\"kind\": \"BoardA\"}, ...]}");
        return std::nullopt;
    }
    QList<BoardConfig> boards;
    const QJsonArray array = object.value(QLatin1String("boards")).toArray();
    for (const QJsonValue value : array) {
        QString error = QStringLiteral("must be an object, for example {\"kind\": \"BoardA\"}");
        const std::optional<BoardConfig> config =
            value.isObject() ? BoardConfig::fromJson(value.toObject(), &error) : std::nullopt;
        if (!config) {
            fault = QStringLiteral("board %1: %2").arg(boards.size() + 1).arg(error);
            return std::nullopt;
        }
        boards.append(*config);
    }
    return boards;
}

} // namespace

std::optional<QList<BoardConfig>> readScenario(const QString &fileName, QString *error)
{
    QString fault;
    const std::optional<QList<BoardConfig>> boards = readBoards(fileName, fault);
    if (!boards && error)
        *error = QStringLiteral("%1: %2").arg(fileName, fault);
    return boards;
}

} // namespace JwSimulator
