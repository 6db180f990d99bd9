#pragma once

#include <QRandomGenerator>
#include <QVector>

/// Makes random choices. The same seed gives the same choices on every machine.
class RandomChoice
{
public:
    explicit RandomChoice(quint32 seed)
        : m_random(seed)
    {
    }

protected:
    bool chance(int percent) { return m_random.bounded(100) < percent; }
    int between(int lowest, qsizetype highest) { return m_random.bounded(lowest, static_cast<int>(highest) + 1); }
    template <typename T>
    T oneOf(const QVector<T> &choices)
    {
        return choices[between(0, choices.size() - 1)];
    }

    QRandomGenerator m_random;
};
