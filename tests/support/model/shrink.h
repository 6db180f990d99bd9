#pragma once

#include <functional>

/// The shortest list that can be had from `list` by leaving elements out while it still `fails`: ever smaller slices
/// are taken out as long as that helps. For QVector, QByteArray and their like.
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
