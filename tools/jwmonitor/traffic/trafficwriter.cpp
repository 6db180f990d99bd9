#include "trafficwriter.h"

#include "trafficcolumns.h"
#include "traffictext.h"
#include <common/printable.h>
#include <jwmonitor/history/safecell.h>

#include <QElapsedTimer>

#include <algorithm>

namespace JwMonitor {

namespace {

constexpr int msPerTurn = 4;
constexpr int recordsAtOnce = 100; // the least of a turn, even if other programs use up the time

QString csvRow(const QStringList &cells)
{
    QStringList quoted;
    for (const QString &cell : cells) {
        const QString text = safeCell(cell).replace(QLatin1Char('"'), QLatin1String("\"\""));
        quoted.append(QLatin1Char('"') + text + QLatin1Char('"'));
    }
    return quoted.join(QLatin1Char(',')) + QLatin1String("\r\n");
}

QString csvHeader(const QVector<TrafficColumn> &columns)
{
    QStringList titles;
    for (const TrafficColumn &column : columns)
        titles.append(column.title.toLower());
    return csvRow(titles);
}

} // namespace

TrafficWriter::TrafficWriter(const QVector<TrafficRecord> &records, const QString &fileName, QObject *parent)
    : QObject(parent)
    , m_records(records)
    , m_columns(trafficFileColumns())
    , m_csv(fileName.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive))
    , m_file(fileName)
    , m_next(0)
{
    connect(&m_turn, &QTimer::timeout, this, &TrafficWriter::writeSome);
}

TrafficWriter::~TrafficWriter() = default;

void TrafficWriter::start()
{
    if (!m_file.open(QIODevice::WriteOnly)) {
        fail();
        return;
    }
    if (m_csv)
        m_file.write(csvHeader(m_columns).toUtf8());
    m_turn.start(0);
}

void TrafficWriter::writeSome()
{
    QElapsedTimer turn;
    turn.start();
    do {
        const auto end = static_cast<int>(std::min<qint64>(m_next + recordsAtOnce, m_records.size()));
        for (; m_next < end; ++m_next) {
            const TrafficRecord &record = m_records[m_next];
            m_file.write((m_csv ? csvLine(record) : textLine(record)).toUtf8());
        }
    } while (m_next < m_records.size() && turn.elapsed() < msPerTurn);
    if (m_file.error() != QFileDevice::NoError)
        fail();
    else if (m_next == m_records.size())
        finish();
}

void TrafficWriter::finish()
{
    if (!m_file.commit()) {
        fail();
        return;
    }
    m_turn.stop();
    Q_EMIT saved(m_file.fileName());
    deleteLater();
}

void TrafficWriter::fail()
{
    m_turn.stop();
    Q_EMIT failed(tr("Can't save %1: %2. Choose another folder or name.").arg(m_file.fileName(), m_file.errorString()));
    deleteLater();
}

QString TrafficWriter::textLine(const TrafficRecord &record) const
{
    const QLatin1String arrow(record.direction == Direction::Received ? "<-" : "->");
    return QStringLiteral("%1  %2  %3  %4\n")
        .arg(TrafficText::moment(record.timeUs), record.port, arrow, JwTools::printable(record.payload.trimmed()));
}

QString TrafficWriter::csvLine(const TrafficRecord &record) const
{
    QStringList cells;
    for (const TrafficColumn &column : m_columns) {
        const TrafficColumn::Cell cell{record, m_decoder};
        cells.append(column.fileText ? column.fileText(cell) : column.text(cell));
    }
    return csvRow(cells);
}

} // namespace JwMonitor
