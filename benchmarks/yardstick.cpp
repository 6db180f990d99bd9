// Measures the least possible cost of the work, in the same run as the library. The yardstick Y is the sum of two
// costs: parsing with parseByKernel() below, which does only the necessary steps, and filling the record by hand.
// report.py gives the times of the library in Y.
#include "perform.h"
#include "sentences.h"

#include <device/sessioninit.h>
#include <nmea/exception.h>

#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

namespace {

struct VersionFields
{
    std::string_view hardware;
    std::array<int, 3> numbers;
};

bool parseByKernel(const char *text, std::size_t size, VersionFields &fields)
{
    const auto *star = static_cast<const char *>(std::memchr(text, '*', size));
    if (!star || text + size - star < 3)
        return false;
    unsigned char sum = 0;
    for (const char *c = text + 1; c < star; ++c)
        sum = static_cast<unsigned char>(sum ^ static_cast<unsigned char>(*c));
    unsigned int expected = 0;
    if (std::from_chars(star + 1, star + 3, expected, 16).ec != std::errc() || expected != sum)
        return false;

    std::array<std::string_view, 5> parts;
    std::size_t count = 0;
    const char *begin = text + 1;
    for (const char *c = begin; c <= star && count < parts.size(); ++c) {
        if (c == star || *c == ',') {
            parts[count++] = {begin, static_cast<std::size_t>(c - begin)};
            begin = c + 1;
        }
    }
    if (count != parts.size())
        return false;
    fields.hardware = parts[1];
    for (std::size_t i = 0; i < fields.numbers.size(); ++i) {
        const std::string_view part = parts[i + 2];
        if (std::from_chars(part.data(), part.data() + part.size(), fields.numbers[i]).ec != std::errc())
            return false;
    }
    return true;
}

std::size_t buildByKernel(std::string_view body, char *out)
{
    static constexpr char digits[] = "0123456789abcdef";
    unsigned char sum = 0;
    char *end = out;
    *end++ = '$';
    for (const char c : body) {
        sum = static_cast<unsigned char>(sum ^ static_cast<unsigned char>(c));
        *end++ = c;
    }
    *end++ = '*';
    *end++ = digits[sum >> 4];
    *end++ = digits[sum & 0xf];
    *end++ = '\r';
    *end++ = '\n';
    return static_cast<std::size_t>(end - out);
}

void kernelParse(benchmark::State &state)
{
    const char *text = versionReply;
    VersionFields fields;
    if (!parseByKernel(text, versionReplySize, fields) || fields.numbers != std::array<int, 3>{1, 4, 0}) {
        state.SkipWithError("the limit kernel does not parse");
        return;
    }
    perform(state, [&] {
        benchmark::DoNotOptimize(text);
        bool good = parseByKernel(text, versionReplySize, fields);
        benchmark::DoNotOptimize(good);
        benchmark::DoNotOptimize(fields);
        benchmark::ClobberMemory();
    });
}

void kernelBuild(benchmark::State &state)
{
    std::string_view body("PJWVER");
    std::array<char, 80> out;
    if (std::string_view(out.data(), buildByKernel(body, out.data())) != versionQuery) {
        state.SkipWithError("the limit kernel does not build");
        return;
    }
    perform(state, [&] {
        benchmark::DoNotOptimize(body);
        std::size_t size = buildByKernel(body, out.data());
        benchmark::DoNotOptimize(size);
        benchmark::ClobberMemory();
    });
}

void fillRecord(benchmark::State &state)
{
    const char *hardware = "7300021";
    int number = 1;
    JwDevice::SessionInit session;
    perform(state, [&] {
        benchmark::DoNotOptimize(hardware);
        benchmark::DoNotOptimize(number);
        session.clear();
        session.sentenceId = 1;
        session.fields[QStringLiteral("hwversion")] = QString::fromLatin1(hardware, 7);
        session.fields[QStringLiteral("v1")] = number;
        session.fields[QStringLiteral("v2")] = number + 3;
        session.fields[QStringLiteral("v3")] = number - 1;
        benchmark::ClobberMemory();
    });
}

void throwAndCatch(benchmark::State &state)
{
    const QString message = QStringLiteral("CRC calculation failed");
    perform(state, [&] {
        try {
            throw Nmea::Exception(message);
        } catch (const Nmea::Exception &exception) {
            benchmark::DoNotOptimize(exception);
        }
    });
}

BENCHMARK(kernelParse)->Name("yardstick/limit kernel: parse");
BENCHMARK(kernelBuild)->Name("yardstick/limit kernel: build");
BENCHMARK(fillRecord)->Name("yardstick/record filled by hand");
BENCHMARK(throwAndCatch)->Name("yardstick/bare throw");

} // namespace
