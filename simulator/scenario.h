#pragma once

#include <simulator/boardconfig.h>

#include <QList>

namespace JwSimulator {

/// Reads a scenario file: a JSON object with one member, "boards", an array with one object per board in the JSON form
/// of BoardConfig. Returns nothing if the file is wrong; `error` (may be null) then has one line that names the file,
/// the place and what is allowed.
std::optional<QList<BoardConfig>> readScenario(const QString &fileName, QString *error = nullptr);

} // namespace JwSimulator
