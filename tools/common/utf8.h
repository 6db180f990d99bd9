#pragma once

#include <QString>

namespace JwTools {

/// Returns the text of UTF-8 bytes. Unlike QString::fromUtf8() of a QByteArray in Qt 5, does not stop at a NUL.
inline QString textOf(const QByteArray &utf8)
{
    return QString::fromUtf8(utf8.constData(), static_cast<int>(utf8.size()));
}

} // namespace JwTools
