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
    loggerInstance()->setLevel(Logger::Fatal); // the library logs bad sentences as errors
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
