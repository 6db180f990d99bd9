#pragma once

#include <QByteArray>

namespace JwSimulator {

/// Returns the sentence that consists of "$", `body`, "*", the checksum, CR and LF. The checksum is the XOR of all
/// bytes of the body, as two lower-case hexadecimal digits. If `rightChecksum` is false, the checksum is another
/// number.
QByteArray frameSentence(const QByteArray &body, bool rightChecksum = true);

/// Returns the body of a sentence, for example "PJWVER" for "$PJWVER*0c". `line` may end with a line end. Null if
/// `line` is not a sentence or its checksum is wrong.
QByteArray sentenceBody(const QByteArray &line);

} // namespace JwSimulator
