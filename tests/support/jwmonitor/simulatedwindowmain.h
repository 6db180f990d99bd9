#pragma once

#include <simulator/preload.h>

#include <QApplication>
#include <QTest>

/// Defines main() of a test that shows windows and uses simulated ports. If the environment does not set
/// QT_QPA_PLATFORM, the test uses the platform "offscreen", which needs no display.
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
