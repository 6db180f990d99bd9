#include "discardedoutput.h"

#include <dlfcn.h>
#include <termios.h>

QVector<int> discardedOutput;

/// Replaces the C library's tcflush(), to record the ports whose unsent bytes are discarded.
extern "C" __attribute__((visibility("default"))) int tcflush(int descriptor, int queue) noexcept
{
    if (queue == TCOFLUSH || queue == TCIOFLUSH)
        discardedOutput.append(descriptor);
    static const auto original = reinterpret_cast<int (*)(int, int)>(::dlsym(RTLD_NEXT, "tcflush"));
    return original(descriptor, queue);
}
