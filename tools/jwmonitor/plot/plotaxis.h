#pragma once

#include <QVector>
#include <QtGlobal>

namespace JwMonitor {

/// Where an axis has its marks.
class PlotAxis
{
public:
    /// For numbers: at 1, 2 or 5 times a power of ten, at most `maxMarks`. Without extent the range is widened.
    static PlotAxis forValues(double low, double high, int maxMarks);
    /// For times of day, in microseconds since the epoch: at whole seconds, minutes or hours.
    static PlotAxis forTimes(qint64 beginUs, qint64 endUs, int maxMarks);

    double low() const { return m_low; }
    double high() const { return m_high; }
    double step() const { return m_step; }
    QVector<double> marks() const;

    /// Where `value` stands between `low` (0) and `high` (1).
    double position(double value) const { return (value - m_low) / (m_high - m_low); }

private:
    PlotAxis(double low, double high, double step);

    double m_low;
    double m_high;
    double m_step;
};

} // namespace JwMonitor
