#pragma once

#include <simulator/boardconfig.h>

namespace JwSimulator {

/// Describes one kind of board: all properties in which the kinds differ.
struct BoardKind
{
    enum class Unasked { Nothing, RandomBytes, Sentences };

    BoardConfig::Kind kind;
    const char *name; ///< name in the text form, in JSON and in reports
    const char *query; ///< body of the query that the board answers; empty = the board answers no query
    const char *reply; ///< body of the reply; "%1" stands for the hardware version
    const char *hwversion; ///< default hardware version
    Unasked unasked; ///< the kind of bytes that the board sends without a query
};

/// The kinds of boards, in the order of BoardConfig::Kind. The other files of the simulator read this table. To add a
/// kind, add a value to BoardConfig::Kind and a row here, and describe the kind in the manual page docs/man/jwsim.1.
inline constexpr BoardKind boardKinds[] = {
    {BoardConfig::Kind::BoardA, "BoardA", "PJWVER", "PJWVER,%1,1,4,0", "7300022", BoardKind::Unasked::Nothing},
    {BoardConfig::Kind::BoardB, "BoardB", "PJWVER", "PJWVER,%1,1,4,0", "7300021", BoardKind::Unasked::Nothing},
    {BoardConfig::Kind::BoardC, "BoardC", "PTJWWR,INF", "PTJWRD,INF,CTRL,3,17,2,1.04,%1,1", "7300030",
     BoardKind::Unasked::Nothing},
    {BoardConfig::Kind::Silent, "silent", "", "", "", BoardKind::Unasked::Nothing},
    {BoardConfig::Kind::Babble, "babble", "", "", "", BoardKind::Unasked::RandomBytes},
    {BoardConfig::Kind::Other, "other", "", "", "", BoardKind::Unasked::Sentences},
};

constexpr bool eachKindHasItsRow()
{
    int row = 0;
    for (const BoardKind &entry : boardKinds) {
        if (static_cast<int>(entry.kind) != row++)
            return false;
    }
    return row == static_cast<int>(BoardConfig::Kind::Other) + 1;
}
static_assert(eachKindHasItsRow(), "boardKinds needs one row for each BoardConfig::Kind, in the same order");

constexpr const BoardKind &boardKind(BoardConfig::Kind kind)
{
    return boardKinds[static_cast<int>(kind)];
}

} // namespace JwSimulator
