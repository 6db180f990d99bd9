#pragma once

#include <jwmonitor/history/historyscan.h>
#include <jwmonitor/traffic/boardnames.h>
#include <jwmonitor/traffic/trafficrecord.h>

#include <QMap>
#include <QObject>
#include <QPair>
#include <QVector>

#include <deque>

namespace JwMonitor {

class TrafficModel;

/// The quantity that a plot shows: the values of one field of a sentence. If `identifier` is empty, the quantity is the
/// number of payloads per second.
struct PlotQuantity
{
    QString identifier;
    Direction direction = Direction::Received;
    int field = 0;

    bool isRate() const { return identifier.isEmpty(); }
};

struct PlotSample
{
    /// Number of the payload, as in HistoryScan. If the sample counts several payloads, number of the newest of them.
    /// When the model drops the payload with this number, the sample is deleted.
    qint64 number;
    qint64 timeUs; ///< microseconds since the epoch; never lower than in the sample before
    double value;
};

/// The curve of each board. The key is TrafficRecord::key().
using PlotCurves = QMap<QString, std::deque<PlotSample>>;

/// Computes the curves of one quantity from the payloads of the model. The fields of a payload with a bad checksum are
/// ignored, but the payload counts in the number of payloads per second.
class PlotData : public QObject
{
    Q_OBJECT

public:
    explicit PlotData(const TrafficModel *model, QObject *parent = nullptr);
    ~PlotData() override;

    /// Sets the quantity and computes the curves again, in several turns of the event loop if there are many payloads.
    void setQuantity(const PlotQuantity &quantity);
    const PlotQuantity &quantity() const { return m_quantity; }
    const PlotCurves &curves() const { return m_curves; }
    /// Returns the name of the curve with this key: the port where the board was last.
    QString curveName(const QString &key) const { return m_names.name(key); }

    /// Returns the fields in which a number was found so far, in the order in which they were found.
    const QVector<PlotQuantity> &fields() const { return m_fields; }
    /// Returns the name of a field, for example "PTJWRD rev".
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
    BoardNames m_names;
    QVector<PlotQuantity> m_fields;
    QMap<Kind, quint64> m_known; // key: kind of sentence; bit n of the value is set if m_fields has its field n
};

} // namespace JwMonitor
