#pragma once

namespace JwSimulator {

/**
 * Makes sure that this program runs with libumockdev-preload. This library replaces system calls, so that a program
 * sees the simulated ports. If the library is not loaded, this function adds it to LD_PRELOAD and restarts the program
 * with the same arguments.
 *
 * Call this function at the start of main(), before a thread or a Qt object exists:
 *
 * \code
 * int main(int argc, char **argv)
 * {
 *     JwSimulator::ensurePreloaded(argv);
 *     QCoreApplication application(argc, argv);
 * \endcode
 * Programs that this program starts inherit LD_PRELOAD. If the library is missing or has no effect, this program ends
 * with status 2 and one line on standard error. If you build with AddressSanitizer and gcc, run the program with
 * ASAN_OPTIONS=verify_asan_link_order=0. If you build with clang, you need no setting.
 */
void ensurePreloaded(char **argv);

/// Returns whether this program runs with libumockdev-preload.
bool isPreloaded();

} // namespace JwSimulator
