#pragma once

#include <QtGlobal>

/// Returns the number in an environment variable. Returns `otherwise` if the variable is missing or is not a number.
inline quint32 environmentNumber(const char *name, quint32 otherwise)
{
    bool ok = false;
    const int number = qEnvironmentVariableIntValue(name, &ok);
    return ok && number >= 0 ? static_cast<quint32>(number) : otherwise;
}
