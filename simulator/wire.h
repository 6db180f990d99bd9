#pragma once

#include <QtCore/QByteArray>

namespace JwSimulator {

/** "$" @p body "*" two lower-case hexadecimal digits CR LF: the XOR of all bytes of the body, or a wrong one. */
QByteArray frameSentence(const QByteArray &body, bool rightChecksum = true);

/** The body of a line such as "$PJWVER*0c" (with or without its line end), null if it is no sentence or its checksum
 *  is wrong. */
QByteArray sentenceBody(const QByteArray &line);

} // namespace JwSimulator
