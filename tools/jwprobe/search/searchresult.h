#pragma once

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

/// What came of a search. The boards belong to the Finder.
struct SearchResult
{
    QList<JwDevice::Type> wanted;
    QList<Board *> boards; ///< in the order in which they were found
    QList<JwDevice::Type> missing; ///< in the order of `wanted`
    QList<Diagnosis> others; ///< the probed ports that hold none of `boards`
    bool deadlineReached = false;
    double milliseconds = 0; ///< that the search took

    /// The board of that type, or null.
    Board *board(JwDevice::Type type) const;
    bool hasCandidates() const { return !boards.isEmpty() || !others.isEmpty(); }
    ExitStatus exitStatus() const;
};

} // namespace JwProbe
