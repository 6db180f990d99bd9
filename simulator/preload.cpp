#include "preload.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

namespace JwSimulator {

namespace {

const char *const library = "libumockdev-preload.so.0";
const char *const triedVariable = "JWSIM_PRELOAD_TRIED";

[[noreturn]] void giveUp(const char *reason)
{
    std::fprintf(stderr, "cannot simulate serial ports: %s\n", reason);
    std::exit(2);
}

} // namespace

bool isPreloaded()
{
    return ::dlopen(library, RTLD_LAZY | RTLD_NOLOAD) != nullptr;
}

void ensurePreloaded(char **argv)
{
    if (isPreloaded()) {
        ::unsetenv(triedVariable);
        return;
    }
    // Before a process restarts itself, it writes its id to `triedVariable`. A restart keeps the id. So if the variable
    // contains the id of this process, the restart had no effect. Any other id comes from a parent process.
    const std::string self = std::to_string(::getpid());
    const char *const tried = std::getenv(triedVariable);
    if (tried && tried == self)
        giveUp("libumockdev-preload has no effect on this program; link the program dynamically and do not run it "
               "set-uid");
    if (!::dlopen(library, RTLD_LAZY))
        giveUp("libumockdev-preload.so.0 is missing; install the package umockdev");
    char path[PATH_MAX] = {};
    if (::readlink("/proc/self/exe", path, sizeof path - 1) <= 0)
        giveUp("/proc is not mounted; mount it");
    const char *const present = std::getenv("LD_PRELOAD");
    const std::string preload = present && *present ? std::string(library) + ':' + present : library;
    ::setenv("LD_PRELOAD", preload.c_str(), 1);
    ::setenv(triedVariable, self.c_str(), 1);
    ::execv(path, argv);
    giveUp("this program cannot restart itself");
}

} // namespace JwSimulator
