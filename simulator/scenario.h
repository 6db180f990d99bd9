#pragma once

#include <simulator/boardconfig.h>

#include <QtCore/QList>

namespace JwSimulator {

/**
 * Reads a scenario file: a JSON object whose only member "boards" is an array with one object per board, in the JSON
 * form of BoardConfig. On a fault nothing is returned and @p error (may be null) is one line that names the file, the
 * place and what is allowed.
 */
std::optional<QList<BoardConfig>> readScenario(const QString &fileName, QString *error = nullptr);

} // namespace JwSimulator
