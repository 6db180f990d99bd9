#include "wholelines.h"

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

} // namespace JwDevice
