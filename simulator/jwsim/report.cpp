#include "report.h"

#include <simulator/testbed.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace JwSimulator {

namespace {

QString escaped(const QByteArray &bytes)
{
    QString text;
    for (const char byte : bytes) {
        if (byte == '\\')
            text += QLatin1String("\\\\");
        else if (byte == '\r')
            text += QLatin1String("\\r");
        else if (byte == '\n')
            text += QLatin1String("\\n");
        else if (byte >= ' ' && byte <= '~')
            text += QLatin1Char(byte);
        else
            text += QLatin1String("\\x") + QString::fromLatin1(QByteArray(1, byte).toHex());
    }
    return text;
}

QJsonArray entries(const QList<JournalEntry> &journal, JournalEntry::Direction direction)
{
    QJsonArray array;
    for (const JournalEntry &entry : journal) {
        if (entry.direction == direction)
            array.append(QJsonObject{{QStringLiteral("ms"), entry.milliseconds},
                                     {QStringLiteral("text"), escaped(entry.bytes)}});
    }
    return array;
}

} // namespace

QByteArray report(const Testbed &testbed)
{
    QJsonArray boards;
    const QList<Board *> all = testbed.boards();
    for (const Board *board : all) {
        const QList<JournalEntry> journal = board->journal();
        boards.append(QJsonObject{
            {QStringLiteral("port"), board->config().port},
            {QStringLiteral("kind"), BoardConfig::kindName(board->config().kind)},
            {QStringLiteral("queries"), board->queryCount()},
            {QStringLiteral("pulled"), board->pullTime() < 0 ? QJsonValue() : QJsonValue(board->pullTime())},
            {QStringLiteral("received"), entries(journal, JournalEntry::Received)},
            {QStringLiteral("sent"), entries(journal, JournalEntry::Sent)}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("boards"), boards}}).toJson();
}

} // namespace JwSimulator
