#pragma once

#include <QVector>
#include <QtGlobal>

namespace JwMonitor {

/// The range of values that an axis shows, and the marks on the axis.
class PlotAxis
{
public:
    /// Makes an axis for numbers, with at most `maxMarks` marks. The distance between two marks is 1, 2 or 5 times a
    /// power of ten. If `low` and `high` are equal or nearly equal, the range is widened.
    static PlotAxis forValues(double low, double high, int maxMarks);
    /// Makes an axis for times in microseconds since the epoch. The distance between two marks is one second to one
    /// day.
    static PlotAxis forTimes(qint64 beginUs, qint64 endUs, int maxMarks);

    double low() const { return m_low; }
    double high() const { return m_high; }
    double step() const { return m_step; }
    QVector<double> marks() const;

    /// Returns the place of `value` on the axis: 0 for low(), 1 for high().
    double position(double value) const { return (value - m_low) / (m_high - m_low); }

private:
    PlotAxis(double low, double high, double step);

    double m_low;
    double m_high;
    double m_step;
};

} // namespace JwMonitor
