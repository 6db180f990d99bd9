#include <logger/logger.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Fatal); // do not print the bad sentences, which the library logs as errors
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
