#pragma once

#include <device/jwdevice_export.h>

#include <QStringView>

class QString;

namespace Nmea {

/**
 * Returns the checksum of NMEA 0183: the XOR of the Latin-1 bytes of the first `length` characters of `text`. If
 * `length` is 0, all characters are used. For a sentence, pass the characters between the start flag and the "*".
 *
 * The result is 0 to 255. A character beyond Latin-1 counts as "?". If `length` is larger than the text, all
 * characters are used. If `length` is negative, the result is 0.
 */
JWDEVICE_EXPORT int calculateCrc(const QString &text, int length);
/// Returns the checksum of all characters of `text`. 0 if `text` is empty.
JWDEVICE_EXPORT int xorOf(QStringView text);

/// Reads the text after the "*" as a hexadecimal number, like QString::toInt(). Blanks and line ends around the number
/// are skipped. If the text is no number, sets `ok` to false and returns 0.
JWDEVICE_EXPORT int readChecksum(QStringView text, bool *ok);
/// Appends `checksum`, 0 to 255, as two lower-case hexadecimal digits. A checksum of 0x80 or more is appended as the 16
/// digits of the negative 64-bit number with the same low byte, for example 0x80 as "ffffffffffffff80". Only characters
/// beyond ASCII lead to such a checksum.
JWDEVICE_EXPORT void appendChecksum(QString &sentence, int checksum);

} // namespace Nmea
