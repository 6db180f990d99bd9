#pragma once

#include <QString>

namespace JwBridge {

/// Writes "jwbridge: ", `text` and a line end to standard error. Characters that could disturb a terminal are escaped.
void say(const QString &text);

} // namespace JwBridge
