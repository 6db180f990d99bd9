#pragma once

#include "portlist.h"
#include <jwprobe/doctor/diagnosis.h>

#include <device/type.h>

#include <QList>

namespace JwProbe {

class Board;

enum ExitStatus {
    AllFound = 0,
    SomeMissing = 1,
    WrongUse = 2,
    NoCandidate = 3,
};

/// The result of a search. The Finder owns the boards in it.
struct SearchResult
{
    PortChoice choice;
    QList<JwDevice::Type> wanted; ///< with Options::anyType, only the found types if there are any
    QList<Board *> boards; ///< the found boards, in the order of their answers
    QList<JwDevice::Type> missing; ///< the types that were not found, in the order of `wanted`
    QList<Diagnosis> others; ///< the other candidate ports, on which none of `boards` was found
    bool deadlineReached = false;
    double milliseconds = 0; ///< duration of the search

    /// Returns the board of this type. Null if no such board was found.
    Board *board(JwDevice::Type type) const;
    bool hasCandidates() const { return !boards.isEmpty() || !others.isEmpty(); }
    ExitStatus exitStatus() const;
};

} // namespace JwProbe
