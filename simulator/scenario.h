#pragma once

#include <simulator/boardconfig.h>

#include <QList>

namespace JwSimulator {

/// Reads a scenario file. The file is a JSON object with one member, "boards". The value of "boards" is an array with
/// one object for each board, in the JSON form of BoardConfig. If the file is wrong, returns nothing and sets `error`
/// (may be null) to one line: the file, the wrong board if only one is wrong, and what is allowed.
std::optional<QList<BoardConfig>> readScenario(const QString &fileName, QString *error = nullptr);

} // namespace JwSimulator
