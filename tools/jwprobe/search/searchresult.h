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

/// The result of a search. The Finder owns the boards.
struct SearchResult
{
    QList<JwDevice::Type> wanted;
    QList<Board *> boards; ///< in the order of their answers
    QList<JwDevice::Type> missing; ///< in the order of `wanted`
    QList<Diagnosis> others; ///< the probed ports that hold none of `boards`
    bool deadlineReached = false;
    double milliseconds = 0; ///< duration of the search

    /// The board of that type; null if it was not found.
    Board *board(JwDevice::Type type) const;
    bool hasCandidates() const { return !boards.isEmpty() || !others.isEmpty(); }
    ExitStatus exitStatus() const;
};

} // namespace JwProbe
