#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Adds up the sizes of all inputs of a fuzzer and prints the sum when the process ends. scripts/fuzz reads the sum.
class FuzzedBytes
{
public:
    FuzzedBytes() = default;
    ~FuzzedBytes() { std::fprintf(stderr, "fuzzed bytes: %zu\n", m_bytes); }
    FuzzedBytes(const FuzzedBytes &) = delete;
    FuzzedBytes &operator=(const FuzzedBytes &) = delete;

    void add(std::size_t bytes) { m_bytes += bytes; }

private:
    std::size_t m_bytes = 0;
};

/// Returns the text of an input. Each byte is one Latin-1 character, so a sentence can be used as an input without
/// change. The exception is the escape byte 0x1b: the two bytes after it are one UTF-16 unit of any value, even half a
/// surrogate pair. So inputs can also contain characters beyond Latin-1.
inline QString textFromInput(const uint8_t *data, std::size_t size)
{
    constexpr uint8_t escape = 0x1b;
    QString text;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == escape && i + 2 < size) {
            text += QChar(static_cast<ushort>(data[i + 1] << 8 | data[i + 2]));
            i += 2;
        } else {
            text += QLatin1Char(static_cast<char>(data[i]));
        }
    }
    return text;
}

/// Prints `what` and aborts, so libFuzzer reports the input as a failure.
[[noreturn]] inline void reportFinding(const QString &what)
{
    std::fprintf(stderr, "%s\n", what.toUtf8().constData());
    std::abort();
}

inline void expect(bool condition, const char *what)
{
    if (!condition)
        reportFinding(QString::fromLatin1(what));
}
