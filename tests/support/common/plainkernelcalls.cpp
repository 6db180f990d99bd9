// Makes simulated ports fast enough for tests that open ports a hundred thousand times. The functions in this file
// replace slow functions with the same names.
//
// ioctl(): umockdev (the library behind the simulated ports) passes each call to a second thread. That takes most of
// the time of a short probe. A simulated port is a pseudo terminal, which the kernel itself can handle. So this ioctl()
// calls the kernel directly.
// fsync() and fdatasync(): QLockFile and umockdev call these functions to wait for the disk. Tests need not wait, so
// these functions do nothing.
#include <cstdarg>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

__attribute__((visibility("default"))) int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    return static_cast<int>(::syscall(SYS_ioctl, descriptor, request, argument));
}

__attribute__((visibility("default"))) int fdatasync(int)
{
    return 0;
}

__attribute__((visibility("default"))) int fsync(int)
{
    return 0;
}

} // extern "C"
