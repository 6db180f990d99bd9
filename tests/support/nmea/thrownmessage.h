#pragma once

#include <nmea/exception.h>

#include <QString>

/// Returns the message of the Nmea::Exception that `call` throws. Null if `call` throws no Nmea::Exception.
template <typename Call>
QString thrownMessage(Call call)
{
    try {
        call();
    } catch (const Nmea::Exception &exception) {
        return exception.message();
    }
    return QString();
}
