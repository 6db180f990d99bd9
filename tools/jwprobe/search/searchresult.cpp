#include "searchresult.h"

#include "board.h"

namespace JwProbe {

Board *SearchResult::board(JwDevice::Type type) const
{
    for (Board *board : boards) {
        if (board->type() == type)
            return board;
    }
    return nullptr;
}

ExitStatus SearchResult::exitStatus() const
{
    if (missing.isEmpty())
        return AllFound;
    return hasCandidates() ? SomeMissing : NoCandidate;
}

} // namespace JwProbe
