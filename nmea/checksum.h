#pragma once

#include <device/jwdevice_export.h>

#include <QStringView>

class QString;

namespace Nmea {

/**
 * The checksum of NMEA 0183: the XOR of the Latin-1 bytes of the first `length` characters of `text`, or of all
 * characters if `length` is 0. The checksum of a sentence covers the characters between start flag and "*".
 *
 * Returns 0 to 255. A character outside Latin-1 counts as "?", a character beyond the end as 0. A negative `length`
 * gives 0.
 */
JWDEVICE_EXPORT int calculateCrc(const QString &text, int length);
/// The checksum of all of `text`; 0 if it is empty.
JWDEVICE_EXPORT int xorOf(QStringView text);

/// Reads the text after the "*" as QString::toInt() reads a number of base 16; blanks and line ends around it are
/// skipped. If the text is no number, `ok` becomes false and the result is 0.
JWDEVICE_EXPORT int readChecksum(QStringView text, bool *ok);
/// Appends `checksum`, 0 to 255, as two lower-case hexadecimal digits. A checksum of 0x80 or more gets 16 digits: the
/// negative number with the same low byte. Only characters beyond ASCII lead to such a checksum.
JWDEVICE_EXPORT void appendChecksum(QString &sentence, int checksum);

} // namespace Nmea
