#pragma once

#include <device/jwdevice_export.h>

class QString;

namespace Nmea {

/**
 * The checksum of NMEA 0183: the XOR of the Latin-1 bytes of the first `length` characters of `text`, or of all of them
 * when `length` is 0. A sentence's checksum covers what stands between its start flag and its "*".
 *
 * Returns 0 to 255. Characters outside Latin-1 count as "?", characters beyond the end as 0; a negative `length` gives
 * 0.
 */
JWDEVICE_EXPORT int calculateCrc(const QString &text, int length);

} // namespace Nmea
