#include "trafficcolumns.h"

#include "traffictext.h"
#include <common/printable.h>
#include <jwmonitor/history/historytable.h>

#include <QCoreApplication>

#include <algorithm>

namespace JwMonitor {

namespace {

using Cell = TrafficColumn::Cell;

struct Columns
{
    Q_DECLARE_TR_FUNCTIONS(JwMonitor::TrafficColumns)
};

Sentence decoded(const Cell &cell)
{
    return cell.decoder.decode(cell.record.payload, cell.record.direction);
}

QString progressToolTip(const Cell &cell)
{
    switch (cell.record.transfer) {
    case Transfer::Waiting:
        return Columns::tr(
            "The payload waits in the port until the system takes it. If the board is on another machine, "
            "the bridge has not yet answered.");
    case Transfer::Taken:
        return Columns::tr("The system took the payload. The Communicator did not report it as transferred, and may "
                           "never do so: it counts each report of the port for its first payloads again.");
    case Transfer::Transferred:
        return Columns::tr("The Communicator reported the payload as transferred.");
    case Transfer::Lost:
        return Columns::tr("The payload still waited in the port when the board was lost or let go. Send it again when "
                           "the board is back.");
    case Transfer::Written:
        return Columns::tr("The bridge of the other machine wrote the payload to the board.");
    case Transfer::Failed:
        return Columns::tr("The bridge of the other machine did not report that it wrote the payload.");
    case Transfer::None:
        break;
    }
    return QString();
}

std::optional<Theme::Role> checksumColour(const Cell &cell)
{
    switch (decoded(cell).checksum) {
    case ChecksumState::Good:
        return Theme::Good;
    case ChecksumState::Bad:
        return Theme::Problem;
    case ChecksumState::Missing:
        break;
    }
    return Theme::Quiet;
}

std::optional<Theme::Role> progressColour(const Cell &cell)
{
    if (cell.record.transfer == Transfer::Lost || cell.record.transfer == Transfer::Failed)
        return Theme::Problem;
    return cell.record.transfer == Transfer::Waiting ? Theme::Waiting : Theme::Good;
}

// clang-format off
QVector<TrafficColumn> makeColumns()
{
    constexpr int anyTraffic = TrafficColumn::Decoded | TrafficColumn::Undecoded;
    constexpr int everywhere = anyTraffic | TrafficColumn::SentOnly;
    return {
        {TrafficColumn::Time, 0, everywhere, Columns::tr("Time"), QStringLiteral("00:00:00.000"),
         [](const Cell &cell) { return TrafficText::clock(cell.record.timeUs); },
         [](const Cell &cell) { return TrafficText::moment(cell.record.timeUs); },
         [](const Cell &cell) { return TrafficText::moment(cell.record.timeUs); }},
        {TrafficColumn::Port, 1, everywhere, Columns::tr("Port"), QStringLiteral("ttyACM00"),
         [](const Cell &cell) { return cell.record.port; }},
        {TrafficColumn::Way, 2, anyTraffic, Columns::tr("Direction"), TrafficText::direction(Direction::Received),
         [](const Cell &cell) { return TrafficText::direction(cell.record.direction); }, nullptr, nullptr,
         [](const Cell &cell) -> std::optional<Theme::Role> {
             return cell.record.direction == Direction::Received ? Theme::Reply : Theme::Query;
         }},
        {TrafficColumn::Id, 3, everywhere, Columns::tr("Id"), QStringLiteral("100000"),
         [](const Cell &cell) { return cell.record.id == 0 ? QString() : QString::number(cell.record.id); }},
        {TrafficColumn::Progress, 7, TrafficColumn::SentOnly, Columns::tr("Progress"),
         TrafficText::transfer(Transfer::Lost),
         [](const Cell &cell) { return TrafficText::transfer(cell.record.transfer); }, nullptr, progressToolTip,
         progressColour},
        {TrafficColumn::Checksum, 6, TrafficColumn::Decoded, Columns::tr("Checksum"),
         TrafficText::checksum(ChecksumState::Missing),
         [](const Cell &cell) { return TrafficText::checksum(decoded(cell).checksum); }, nullptr, nullptr,
         checksumColour},
        {TrafficColumn::Identifier, 4, TrafficColumn::Decoded, Columns::tr("Identifier"), QStringLiteral("PTJWRD"),
         [](const Cell &cell) {
             return JwTools::printable(SentenceDecoder::identifier(cell.record.payload).toString());
         }},
        {TrafficColumn::Fields, 5, TrafficColumn::Decoded, Columns::tr("Fields"), QString(),
         [](const Cell &cell) { return TrafficText::fields(decoded(cell)); }},
        {TrafficColumn::Raw, 8, TrafficColumn::Undecoded | TrafficColumn::SentOnly, Columns::tr("Payload"), QString(),
         [](const Cell &cell) { return JwTools::printable(cell.record.payload); },
         [](const Cell &cell) { return JwTools::printable(cell.record.payload.trimmed()); }},
    };
}
// clang-format on

} // namespace

const QVector<TrafficColumn> &trafficColumns()
{
    static const QVector<TrafficColumn> columns = makeColumns(); // not global, because tr() needs an application
    return columns;
}

QVector<TrafficColumn> trafficFileColumns()
{
    QVector<TrafficColumn> columns = trafficColumns();
    std::sort(columns.begin(), columns.end(),
              [](const TrafficColumn &a, const TrafficColumn &b) { return a.filePlace < b.filePlace; });
    return columns;
}

void showTrafficColumns(HistoryTable *table, TrafficColumn::View view, const QString &widest)
{
    QStringList samples;
    for (const TrafficColumn &column : trafficColumns())
        samples.append(column.sample);
    if (widest.size() > samples.at(TrafficColumn::Port).size())
        samples[TrafficColumn::Port] = widest;
    table->setColumnTexts(samples);
    for (const TrafficColumn &column : trafficColumns())
        table->setColumnHidden(column.key, (column.views & view) == 0);
}

} // namespace JwMonitor
