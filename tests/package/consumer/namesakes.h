// Global classes and functions that an application may define. The library has the same names in namespaces.
#pragma once

class QDebug;

class Logger
{
public:
    enum Level { Quiet, Loud };

    Logger();
    ~Logger();
    void clearSinks();
    void setLevel(Level level);
    bool isEnabledFor(Level level, const char *category) const;

private:
    Level m_level = Quiet;
};

struct LogStream
{
    ~LogStream();
    QDebug &stream();
};

struct Communicator
{
    Communicator();
};

struct Initializer
{
    Initializer();
};

struct Exception
{
    ~Exception();
};

class Board;
class Port;
class Record;
class Session;
class Sink;
class Type;

const char *bareFileName(const char *file);
void reportLostRecord(const char *why);
