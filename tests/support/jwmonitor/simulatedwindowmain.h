#pragma once

#include <simulator/preload.h>

#include <QApplication>
#include <QTest>

/// main() of a test of windows on simulated ports. Without a platform of its own choice it needs no display.
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
