#include "wholelines.h"

#include <algorithm>

namespace JwDevice {

WholeLinesBase::~WholeLinesBase() = default;

qint64 WholeLinesBase::bytesOfWholeLines(const char *bytes, qint64 size)
{
    for (qint64 end = size; end > 1 && size - end < longestHeld; --end) {
        if (bytes[end - 1] == '\n' && bytes[end - 2] == '\r')
            return end;
    }
    return size < longestHeld ? 0 : size;
}

qint64 WholeLinesBase::nextLine(const char *bytes, qint64 size) const
{
    for (qint64 end = 2; end <= size; ++end) {
        if (bytes[end - 1] == '\n' && bytes[end - 2] == '\r')
            return end;
    }
    return size < longestHeld && m_wholeLines ? 0 : std::min<qint64>(size, longestHeld);
}

} // namespace JwDevice
