#include "wholelines.h"

#include <algorithm>

namespace JwDevice {

WholeLinesBase::~WholeLinesBase() = default;

qint64 WholeLinesBase::bytesOfWholeLines(const char *bytes, qint64 size, qint64 longest)
{
    for (qint64 end = size; end > 1 && size - end < longest; --end) {
        if (bytes[end - 1] == '\n' && bytes[end - 2] == '\r')
            return end;
    }
    return size < longest ? 0 : size;
}

qint64 WholeLinesBase::nextLine(const char *bytes, qint64 size, qint64 longest) const
{
    for (qint64 end = 2; end <= size; ++end) {
        if (bytes[end - 1] == '\n' && bytes[end - 2] == '\r')
            return end;
    }
    const bool isHeld = m_wholeLines && size < longest;
    return isHeld ? 0 : std::clamp<qint64>(size, 0, longestHeld);
}

} // namespace JwDevice
