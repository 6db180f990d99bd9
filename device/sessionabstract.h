#pragma once

#include <device/jwdevice_export.h>

#include <QtGlobal>

namespace JwDevice {

QT_WARNING_PUSH // no warning about the virtual destructor, which is missing on purpose
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The base class of records. A record contains the data of one sentence. Derive the records of your own sentences from
 * this class.
 *
 * The class has no virtual destructor, because records are values, for example local variables. Never delete a record
 * through a pointer to this class.
 */
class JWDEVICE_EXPORT SessionAbstract
{
public:
    SessionAbstract();
    SessionAbstract(const SessionAbstract &) = default;
    SessionAbstract &operator=(const SessionAbstract &) = default;

    /// Empties the record. Does nothing in this class.
    virtual void clear();
};

QT_WARNING_POP

} // namespace JwDevice
