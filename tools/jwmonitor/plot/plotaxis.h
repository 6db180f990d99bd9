#pragma once

#include <QVector>
#include <QtGlobal>

namespace JwMonitor {

/// The range of an axis and its marks.
class PlotAxis
{
public:
    /// For numbers: at most `maxMarks` marks, at 1, 2 or 5 times a power of ten. A range without extent is widened.
    static PlotAxis forValues(double low, double high, int maxMarks);
    /// For times in microseconds since the epoch: marks at whole seconds, minutes or hours.
    static PlotAxis forTimes(qint64 beginUs, qint64 endUs, int maxMarks);

    double low() const { return m_low; }
    double high() const { return m_high; }
    double step() const { return m_step; }
    QVector<double> marks() const;

    /// The place of `value` on the axis: 0 at `low`, 1 at `high`.
    double position(double value) const { return (value - m_low) / (m_high - m_low); }

private:
    PlotAxis(double low, double high, double step);

    double m_low;
    double m_high;
    double m_step;
};

} // namespace JwMonitor
