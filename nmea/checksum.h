#pragma once

#include <device/jwdevice_export.h>

#include <QStringView>

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
/// The same of the whole of `text`; 0 when it is empty.
JWDEVICE_EXPORT int xorOf(QStringView text);

/// The number that the text behind the "*" stands for, as QString::toInt() reads it in base 16: blanks and line ends
/// around it are passed over. `ok` becomes false, and the result 0, when it is none.
JWDEVICE_EXPORT int readChecksum(QStringView text, bool *ok);
/// Appends `checksum`, 0 to 255, in two lower-case hexadecimal digits. One of 0x80 or more, which only characters
/// beyond ASCII can make, takes 16 digits, those of the negative number that has the same low byte.
JWDEVICE_EXPORT void appendChecksum(QString &sentence, int checksum);

} // namespace Nmea
