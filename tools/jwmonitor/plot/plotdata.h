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

/// What a plot shows: a field of a sentence, or, without an identifier, the payloads per second.
struct PlotQuantity
{
    QString identifier;
    Direction direction = Direction::Received;
    int field = 0;

    bool isRate() const { return identifier.isEmpty(); }
};

struct PlotSample
{
    qint64 number; ///< of the payload, for when that is dropped
    qint64 timeUs; ///< since the epoch; does not go back
    double value;
};

/// By port.
using PlotCurves = QMap<QString, std::deque<PlotSample>>;

/// The curves of one quantity, over the payloads that the model holds. Payloads with a bad checksum count in the rate
/// but have no values.
class PlotData : public QObject
{
    Q_OBJECT

public:
    explicit PlotData(const TrafficModel *model, QObject *parent = nullptr);
    ~PlotData() override;

    /// The curves come part by part.
    void setQuantity(const PlotQuantity &quantity);
    const PlotQuantity &quantity() const { return m_quantity; }
    const PlotCurves &curves() const { return m_curves; }

    /// The fields in which a number was seen, in the order of their coming.
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
