#pragma once

#include <simulator/preload.h>

#include <QApplication>
#include <QTest>

/// Defines main() of a test that shows windows and uses simulated ports. The test needs no display, unless the
/// environment names a platform.
#define SIMULATED_WINDOW_MAIN(TestClass)                                                                               \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        JwSimulator::ensurePreloaded(argv);                                                                            \
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))                                                             \
            qputenv("QT_QPA_PLATFORM", "offscreen");                                                                   \
        QApplication application(argc, argv);                                                                          \
        TestClass test;                                                                                                \
        return QTest::qExec(&test, argc, argv);                                                                        \
    }
