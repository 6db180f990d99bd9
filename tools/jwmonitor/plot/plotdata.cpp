#include "plotdata.h"

#include <jwmonitor/traffic/sentencedecoder.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace JwMonitor {

namespace {

constexpr qint64 second = 1000000;
constexpr int maxFields = 64; // fields of a sentence; m_known has one bit of a quint64 for each field
constexpr int maxKinds = 100; // kinds of sentences; limited, because each disturbed sentence can look like a new kind

bool readNumber(QStringView text, double *value)
{
    bool ok = false;
    *value = QLocale::c().toDouble(text, &ok);
    return ok && std::isfinite(*value);
}

} // namespace

PlotData::PlotData(const TrafficModel *model, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_scan(model)
{
    connect(&m_scan, &HistoryScan::reached, this, &PlotData::read);
    connect(&m_scan, &HistoryScan::dropping, this, &PlotData::drop);
    m_scan.restart();
}

PlotData::~PlotData() = default;

void PlotData::setQuantity(const PlotQuantity &quantity)
{
    m_quantity = quantity;
    m_curves.clear();
    m_scan.restart();
}

QString PlotData::fieldName(const PlotQuantity &field) const
{
    const QString name = m_model->decoder().fieldName(field.identifier, field.direction, field.field);
    if (field.direction == Direction::Sent)
        return tr("%1 %2, sent").arg(field.identifier, name);
    return QStringLiteral("%1 %2").arg(field.identifier, name);
}

void PlotData::read(int first, int last)
{
    for (int row = first; row <= last; ++row) {
        const TrafficRecord &record = m_model->record(row);
        const qint64 number = m_scan.firstNumber() + row;
        m_names.add(record);
        if (m_quantity.isRate())
            count(record, number);
        if (SentenceDecoder::checksum(record.payload) == ChecksumState::Bad)
            continue;
        learnFields(record);
        if (!m_quantity.isRate())
            addValue(record, number);
    }
}

void PlotData::drop(qint64 firstNumber)
{
    for (auto curve = m_curves.begin(); curve != m_curves.end();) {
        std::deque<PlotSample> &samples = curve.value();
        while (!samples.empty() && samples.front().number < firstNumber)
            samples.pop_front();
        if (samples.empty())
            m_names.remove(curve.key());
        curve = samples.empty() ? m_curves.erase(curve) : std::next(curve);
    }
}

void PlotData::count(const TrafficRecord &record, qint64 number)
{
    std::deque<PlotSample> &samples = m_curves[record.key()];
    const qint64 begin = record.timeUs / second * second;
    if (!samples.empty() && begin <= samples.back().timeUs) {
        samples.back().number = number;
        ++samples.back().value;
        return;
    }
    if (!samples.empty()) { // of the seconds that passed without a payload, the first and the last get the value 0
        const qint64 firstIdle = samples.back().timeUs + second;
        if (firstIdle < begin)
            samples.push_back({number, firstIdle, 0});
        if (firstIdle < begin - second)
            samples.push_back({number, begin - second, 0});
    }
    samples.push_back({number, begin, 1});
}

void PlotData::addValue(const TrafficRecord &record, qint64 number)
{
    if (record.direction != m_quantity.direction
        || SentenceDecoder::identifier(record.payload) != m_quantity.identifier)
        return;
    double value = 0;
    if (!readNumber(SentenceDecoder::field(record.payload, m_quantity.field), &value))
        return;
    std::deque<PlotSample> &samples = m_curves[record.key()];
    const qint64 timeUs = samples.empty() ? record.timeUs : std::max(record.timeUs, samples.back().timeUs);
    samples.push_back({number, timeUs, value});
}

void PlotData::learnFields(const TrafficRecord &record)
{
    const QString identifier = SentenceDecoder::identifier(record.payload).toString();
    const Kind kind(identifier, record.direction);
    if (identifier.isEmpty() || (m_known.size() == maxKinds && !m_known.contains(kind)))
        return;
    quint64 &known = m_known[kind];
    for (int field = 0; field < maxFields; ++field) {
        const QStringView text = SentenceDecoder::field(record.payload, field);
        if (text.isNull())
            return;
        double value = 0;
        const quint64 bit = quint64(1) << field;
        if ((known & bit) != 0 || !readNumber(text, &value))
            continue;
        known |= bit;
        m_fields.append({identifier, record.direction, field});
        Q_EMIT fieldAdded();
    }
}

} // namespace JwMonitor
