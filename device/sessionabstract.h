#pragma once

#include <device/jwdevice_export.h>

#include <QtGlobal>

namespace JwDevice {

QT_WARNING_PUSH // no virtual destructor on purpose, see below
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The base of every record of one sentence. A sentence set of your own derives its record from it.
 *
 * Records are values that live with their user, as a rule on the stack. There is no virtual destructor on purpose:
 * never delete one through a pointer to this class.
 */
class JWDEVICE_EXPORT SessionAbstract
{
public:
    SessionAbstract();
    SessionAbstract(const SessionAbstract &) = default;
    SessionAbstract &operator=(const SessionAbstract &) = default;

    /// Makes the record empty, as before the first use. Does nothing in this class.
    virtual void clear();
};

QT_WARNING_POP

} // namespace JwDevice
