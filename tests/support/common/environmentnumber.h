#pragma once

#include <QtGlobal>

/// A number that sets how long a test runs; `otherwise` when the variable is missing or no number.
inline quint32 environmentNumber(const char *name, quint32 otherwise)
{
    bool ok = false;
    const int number = qEnvironmentVariableIntValue(name, &ok);
    return ok && number >= 0 ? static_cast<quint32>(number) : otherwise;
}
