#pragma once

#include <QtGlobal>

#include <csignal>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

/// The seed of the random numbers in the current run. After a call of reportSeedOnCrash(), crashes and sanitizer
/// reports print this seed, so that the run can be repeated.
inline quint32 runningSeed = 0;

inline void writeRunningSeed()
{
    char text[] = "in the run of seed ..........\n"; // on the stack, because after a crash the heap may be broken
    char *digit = text + sizeof text - 2;
    quint32 seed = runningSeed;
    for (int i = 0; i < 10; ++i, seed /= 10)
        *--digit = static_cast<char>('0' + seed % 10);
    if (::write(STDERR_FILENO, text, sizeof text - 1) < 0)
        return;
}

inline void reportSeedOnCrash()
{
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_set_death_callback(&writeRunningSeed);
#else
    for (const int crash : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS}) {
        ::signal(crash, [](int number) {
            writeRunningSeed();
            ::signal(number, SIG_DFL);
            ::raise(number);
        });
    }
#endif
}
