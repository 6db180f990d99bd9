#pragma once

#include <functional>

/// Returns `list` without the parts that `fails` does not need to return true. Tries to remove large parts first, then
/// smaller parts. Works for QVector, QByteArray and similar types.
template <typename List>
List shrunk(List list, const std::function<bool(const List &)> &fails)
{
    for (int slice = list.size(); slice >= 1; slice /= 2) {
        for (int at = 0; at < list.size();) {
            const List shorter = list.mid(0, at) + list.mid(at + slice);
            if (fails(shorter))
                list = shorter;
            else
                at += slice;
        }
    }
    return list;
}
