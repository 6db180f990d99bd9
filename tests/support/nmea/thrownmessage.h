#pragma once

#include <nmea/exception.h>

#include <QString>

/// The message of the Nmea::Exception that `call` throws. Null if `call` throws none.
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
