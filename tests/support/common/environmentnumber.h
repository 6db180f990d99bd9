#pragma once

#include <QtGlobal>

/// The number in an environment variable. `otherwise` if the variable is missing or no number.
inline quint32 environmentNumber(const char *name, quint32 otherwise)
{
    bool ok = false;
    const int number = qEnvironmentVariableIntValue(name, &ok);
    return ok && number >= 0 ? static_cast<quint32>(number) : otherwise;
}
