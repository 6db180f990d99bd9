#pragma once

#include <QByteArray>

namespace JwSimulator {

/// The sentence "$" `body` "*" checksum CR LF. The checksum is two lower-case hexadecimal digits: the XOR of all bytes
/// of the body, or another number if `rightChecksum` is false.
QByteArray frameSentence(const QByteArray &body, bool rightChecksum = true);

/// The body of a sentence, for example "PJWVER" of "$PJWVER*0c" (with or without line end). Null if `line` is not a
/// sentence or its checksum is wrong.
QByteArray sentenceBody(const QByteArray &line);

} // namespace JwSimulator
