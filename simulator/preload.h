#pragma once

namespace JwSimulator {

/**
 * Makes sure that this program runs with libumockdev-preload. Without that library a program sees no simulated ports.
 * If the library is not loaded, this function adds it to LD_PRELOAD and restarts the program with the same arguments.
 *
 * Call this at the start of main(), before a thread or a Qt object exists:
 *
 * \code
 * int main(int argc, char **argv)
 * {
 *     JwSimulator::ensurePreloaded(argv);
 *     QCoreApplication application(argc, argv);
 * \endcode
 * Programs that this program starts inherit LD_PRELOAD. If the library is missing or has no effect, the program ends
 * with status 2 and one line on standard error. With AddressSanitizer, a gcc build needs
 * ASAN_OPTIONS=verify_asan_link_order=0; a clang build needs nothing.
 */
void ensurePreloaded(char **argv);

/// Returns whether this program runs with libumockdev-preload.
bool isPreloaded();

} // namespace JwSimulator
