#pragma once

/// Returns whether `call` throws an Exception. Other exceptions pass through. Qt Test's macros for this differ between
/// Qt 5 and Qt 6.
template <typename Exception, typename Call>
bool throws(Call call)
{
    try {
        call();
    } catch (const Exception &) {
        return true;
    }
    return false;
}
