#pragma once

#include <QString>

#include <optional>

namespace JwBridge {

constexpr qint64 maxSize = 1000LL * 1024 * 1024 * 1024; ///< bytes

/// Reads a number of bytes, for example "256M". The units are K, M and G. Returns nothing if `text` is no such size.
std::optional<qint64> readSize(const QString &text);

/// Reads a number of seconds, for example "12h". The units are s, m, h and d. Returns nothing if `text` is no such
/// time.
std::optional<qint64> readTime(const QString &text);

} // namespace JwBridge
