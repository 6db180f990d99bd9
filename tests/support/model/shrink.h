#pragma once

#include <functional>
#include <utility>

/// Returns `list` without the parts that `fails` does not need to return true. Tries to remove large parts first, then
/// smaller parts. Works for QVector, QByteArray and similar types.
template <typename List>
List shrunk(List list, const std::function<bool(const List &)> &fails)
{
    for (typename List::size_type slice = list.size(); slice >= 1; slice /= 2) {
        for (typename List::size_type at = 0; at < list.size();) {
            const List shorter = list.mid(0, at) + list.mid(at + slice);
            if (fails(shorter))
                list = shorter;
            else
                at += slice;
        }
    }
    return list;
}

/// Makes the parts of a schedule simpler, as long as `fails` still returns true for the whole schedule.
template <typename Schedule>
class Shrinker
{
public:
    Shrinker(Schedule &schedule, const std::function<bool(const Schedule &)> &fails)
        : m_schedule(schedule)
        , m_fails(fails)
    {
    }

    /// Sets `part` to `plainer`.
    template <typename Part, typename Plainer>
    void replace(Part &part, const Plainer &plainer)
    {
        const Part before = part;
        if (before == plainer)
            return;
        part = plainer;
        if (!m_fails(m_schedule))
            part = before;
    }

    /// Removes slices of the list `part`.
    template <typename List>
    void shrink(List &part)
    {
        const List before = part;
        part = shrunk<List>(before, [&](const List &shorter) {
            const List kept = std::exchange(part, shorter);
            const bool stillFails = m_fails(m_schedule);
            part = kept;
            return stillFails;
        });
    }

private:
    Schedule &m_schedule;
    const std::function<bool(const Schedule &)> m_fails;
};
