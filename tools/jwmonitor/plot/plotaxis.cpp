#include "plotaxis.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace JwMonitor {

namespace {

constexpr double second = 1e6;
constexpr double leastExtent = 1e-12; // an axis is widened if its ends differ by less than this part of the larger end
constexpr double smallest = 1e-200; // an axis whose ends differ by less is widened too, otherwise its step could be 0
constexpr double largest = 1e300; // low is at least -largest and high at most largest, so that high - low is finite
constexpr double timeSteps[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 21600, 43200, 86400};

} // namespace

PlotAxis::PlotAxis(double low, double high, double step)
    : m_low(low)
    , m_high(high)
    , m_step(step)
{
}

PlotAxis PlotAxis::forValues(double low, double high, int maxMarks)
{
    low = std::clamp(low, -largest, largest);
    high = std::clamp(high, -largest, largest);
    const double size = std::max(std::abs(low), std::abs(high));
    if (high - low <= std::max(size * leastExtent, smallest)) {
        const double margin = size <= smallest ? 1 : size * 0.1;
        low -= margin;
        high += margin;
    }
    const double least = (high - low) / std::max(1, maxMarks - 1);
    const double magnitude = std::pow(10, std::floor(std::log10(least)));
    double step = 10 * magnitude;
    for (const double factor : {5, 2, 1}) {
        if (factor * magnitude >= least)
            step = factor * magnitude;
    }
    return PlotAxis(low, high, step);
}

PlotAxis PlotAxis::forTimes(qint64 beginUs, qint64 endUs, int maxMarks)
{
    const auto low = static_cast<double>(beginUs);
    const double high = std::max(static_cast<double>(endUs), low + second);
    const double least = (high - low) / second / std::max(1, maxMarks - 1);
    const auto step = std::lower_bound(std::begin(timeSteps), std::end(timeSteps) - 1, least);
    return PlotAxis(low, high, *step * second);
}

QVector<double> PlotAxis::marks() const
{
    QVector<double> marks;
    const double first = std::ceil(m_low / m_step);
    const int count = static_cast<int>(std::floor(m_high / m_step) - first) + 1;
    for (int i = 0; i < count; ++i)
        marks.append((first + i) * m_step);
    return marks;
}

} // namespace JwMonitor
