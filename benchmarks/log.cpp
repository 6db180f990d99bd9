#include "perform.h"

#include <logger/logger.h>

#include <spdlog/sinks/null_sink.h>

#include <QString>

namespace {

constexpr char category[] = "Communication";

/// Measures a Trace record of the category "Communication". The general level is `general`. Only the category `other`
/// has its own level, `particular`.
void record(benchmark::State &state, Logger::Level general, const char *other, Logger::Level particular)
{
    Logger *const logger = loggerInstance();
    const auto sink = std::make_shared<spdlog::sinks::null_sink_mt>();
    logger->addSink(sink);
    logger->setLevel(general);
    logger->setLevel(QString::fromLatin1(other), particular);
    const QString payload = QStringLiteral("$PJWVER,7300021,1,4,0*0e\r\n");
    perform(state, [&] { LOGGER_RECORD(Logger::Trace, category).write() << "-> " << payload.trimmed(); });
    logger->setLevel(QString::fromLatin1(other), Logger::Fatal);
    logger->setLevel(Logger::Fatal);
    logger->removeSink(sink);
}

BENCHMARK_CAPTURE(record, below, Logger::Warning, "Other", Logger::Warning)->Name("log/below its level");
BENCHMARK_CAPTURE(record, belowOther, Logger::Warning, "Other", Logger::Trace)
    ->Name("log/below its level, another category lower");
BENCHMARK_CAPTURE(record, above, Logger::Trace, "Other", Logger::Trace)->Name("log/above its level, one sink");

} // namespace
