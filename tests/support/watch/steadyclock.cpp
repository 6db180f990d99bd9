// Hides changes of the system's clock from a test program. A BoardWatch checks all boards after such a change, and another
// test that runs at the same time may set the clock.
#include <cerrno>

extern "C" __attribute__((visibility("default"))) int timerfd_create(int, int) noexcept
{
    errno = ENOSYS;
    return -1;
}
