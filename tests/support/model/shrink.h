#pragma once

#include <functional>

/// Returns a shorter list for which `fails` still returns true. Removes large slices first, then smaller ones. Works
/// for QVector, QByteArray and similar types.
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
