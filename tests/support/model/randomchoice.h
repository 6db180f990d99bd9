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
    int between(int lowest, int highest) { return m_random.bounded(lowest, highest + 1); }
    template <typename T>
    T oneOf(const QVector<T> &choices)
    {
        return choices[m_random.bounded(choices.size())];
    }

    QRandomGenerator m_random;
};
