#pragma once

#include <jwmonitor/history/historyscan.h>
#include <jwmonitor/traffic/trafficrecord.h>

#include <QMap>
#include <QObject>
#include <QPair>
#include <QVector>

#include <deque>

namespace JwMonitor {

class TrafficModel;

/// The quantity that a plot shows: a field of a sentence, or, if the identifier is empty, the payloads per second.
struct PlotQuantity
{
    QString identifier;
    Direction direction = Direction::Received;
    int field = 0;

    bool isRate() const { return identifier.isEmpty(); }
};

struct PlotSample
{
    qint64 number; ///< of the payload; the sample goes when the payload is dropped
    qint64 timeUs; ///< since the epoch; never lower than that of the sample before
    double value;
};

/// The curve of each port.
using PlotCurves = QMap<QString, std::deque<PlotSample>>;

/// The curves of one quantity for the payloads of the model. A payload with a bad checksum counts in the rate, but its
/// fields don't count.
class PlotData : public QObject
{
    Q_OBJECT

public:
    explicit PlotData(const TrafficModel *model, QObject *parent = nullptr);
    ~PlotData() override;

    /// The curves appear part by part.
    void setQuantity(const PlotQuantity &quantity);
    const PlotQuantity &quantity() const { return m_quantity; }
    const PlotCurves &curves() const { return m_curves; }

    /// The fields that had a number so far, the oldest first.
    const QVector<PlotQuantity> &fields() const { return m_fields; }
    /// Such as "PTJWRD rev".
    QString fieldName(const PlotQuantity &field) const;

Q_SIGNALS:
    void fieldAdded();

private:
    using Kind = QPair<QString, Direction>;

    void read(int first, int last);
    void drop(qint64 firstNumber);
    void count(const TrafficRecord &record, qint64 number);
    void addValue(const TrafficRecord &record, qint64 number);
    void learnFields(const TrafficRecord &record);

    const TrafficModel *const m_model;
    HistoryScan m_scan;
    PlotQuantity m_quantity;
    PlotCurves m_curves;
    QVector<PlotQuantity> m_fields;
    QMap<Kind, quint64> m_known; // one bit for each of m_fields
};

} // namespace JwMonitor
