#pragma once

namespace JwSimulator {

/**
 * Makes sure that this program runs with libumockdev-preload, without which simulated ports cannot be seen or opened:
 * when it does not, the library is put in front of LD_PRELOAD and the program restarts itself with the same
 * arguments. Call it first thing in main(), before a thread or a Qt object exists:
 * @code
 * int main(int argc, char **argv)
 * {
 *     JwSimulator::ensurePreloaded(argv);
 *     QCoreApplication application(argc, argv);
 * @endcode
 * Programs started from here inherit the setting. When the library is missing or has no effect, the program ends with
 * status 2 and one line on standard error. A gcc build with AddressSanitizer needs
 * ASAN_OPTIONS=verify_asan_link_order=0; clang's works as it is.
 */
void ensurePreloaded(char **argv);

/** Whether this program runs with libumockdev-preload. */
bool isPreloaded();

} // namespace JwSimulator
