#pragma once

#include <simulator/preload.h>

#include <QCoreApplication>
#include <QTest>

/// Defines main() for a test that opens simulated ports. The program restarts itself with libumockdev-preload, because
/// without this library it would not see simulated ports.
#define SIMULATED_PORTS_MAIN(TestClass)                                                                                \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        JwSimulator::ensurePreloaded(argv);                                                                            \
        QCoreApplication application(argc, argv);                                                                      \
        TestClass test;                                                                                                \
        return QTest::qExec(&test, argc, argv);                                                                        \
    }
