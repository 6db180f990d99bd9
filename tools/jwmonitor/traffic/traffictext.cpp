#include "traffictext.h"

#include <common/printable.h>

#include <QDateTime>
#include <QStringList>

namespace JwMonitor {

QString TrafficText::clock(qint64 timeUs)
{
    return QDateTime::fromMSecsSinceEpoch(timeUs / 1000).toString(QStringLiteral("HH:mm:ss.zzz"));
}

QString TrafficText::moment(qint64 timeUs)
{
    return QDateTime::fromMSecsSinceEpoch(timeUs / 1000).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))
        + QStringLiteral("%1").arg(timeUs % 1000, 3, 10, QLatin1Char('0'));
}

QString TrafficText::direction(Direction direction)
{
    return direction == Direction::Received ? tr("received") : tr("sent");
}

QString TrafficText::checksum(ChecksumState checksum)
{
    switch (checksum) {
    case ChecksumState::Good:
        return tr("ok");
    case ChecksumState::Bad:
        return tr("bad");
    case ChecksumState::Missing:
        break;
    }
    return tr("none");
}

QString TrafficText::transfer(Transfer transfer)
{
    switch (transfer) {
    case Transfer::Waiting:
        return tr("waiting");
    case Transfer::Taken:
        return tr("taken");
    case Transfer::Transferred:
        return tr("transferred");
    case Transfer::Lost:
        return tr("not sent: the board went");
    case Transfer::Written:
        return tr("written");
    case Transfer::Failed:
        return tr("failed");
    case Transfer::None:
        break;
    }
    return QString();
}

QString TrafficText::fields(const Sentence &sentence)
{
    QStringList fields;
    for (const Sentence::Field &field : sentence.fields)
        fields.append(field.name + QLatin1Char('=') + JwTools::printable(field.value));
    return fields.join(QLatin1String("  "));
}

} // namespace JwMonitor
