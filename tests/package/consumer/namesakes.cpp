// Classes and functions of an application, with names that the library uses too. If the library calls one of them, the
// program ends with status 3.
#undef JWLOGGER_NO_ALIAS // even without this macro, no header below may define the name Logger
#include <device/communicator.h>
#include <device/initializer.h>
#include <device/ipayloadparser.h>
#include <device/sessionabstract.h>
#include <device/sessioninit.h>
#include <device/type.h>
#include <nmea/checksum.h>
#include <nmea/exception.h>
#include <nmea/parserabstract.h>
#include <nmea/parserinit.h>

#include "namesakes.h"

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void taken(const char *name)
{
    std::fprintf(stderr, "the library calls the application's %s\n", name);
    std::_Exit(3);
}

int loggers = 0;
const Logger applicationLogger; // the application's only Logger; if a second Logger is made, the library made it

} // namespace

Logger::Logger()
{
    if (++loggers > 1)
        taken("Logger");
}

Logger::~Logger() = default;

void Logger::clearSinks()
{
    setLevel(Quiet);
    taken("Logger");
}

void Logger::setLevel(Level level)
{
    m_level = level;
    taken("Logger");
}

bool Logger::isEnabledFor(Level level, const char *) const
{
    taken(level >= m_level ? "Logger" : "disabled Logger");
}

LogStream::~LogStream()
{
    taken("LogStream");
}

QDebug &LogStream::stream()
{
    taken("LogStream");
}

Communicator::Communicator()
{
    taken("Communicator");
}

Initializer::Initializer()
{
    taken("Initializer");
}

Exception::~Exception()
{
    taken("Exception");
}

const char *bareFileName(const char *)
{
    taken("bareFileName");
}

void reportLostRecord(const char *)
{
    taken("reportLostRecord");
}
