// Does the kinds of work whose cost has a limit in budget.json. budget.py runs this program under callgrind, the tool
// of valgrind that counts instructions. For each kind of work, callgrind writes one profile, and the program prints a
// line for budget.py: "name: operations allocations".
#include <device/communicator.h>
#include <device/sessioninit.h>
#include <logger/logger.h>
#include <nmea/parserinit.h>
#include <support/common/allocationcount.h>
#include <support/device/streamdevice.h>

#include <QByteArray>
#include <QString>

#include <valgrind/callgrind.h>

#include <gnu/libc-version.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using JwDevice::Communicator;
using JwDevice::SessionInit;

namespace {

constexpr char versionReply[] = "$PJWVER,7300021,1,4,0*0e\r\n";
constexpr char informationReply[] = "$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n";
constexpr int repetitions = 100;

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "budget_work: %s\n", what);
    std::exit(1);
}

/// Counts the cost of `work`. Each run of `work` does `operations` operations.
template <typename Work>
void count(const char *name, int operations, Work work)
{
    work(); // a first run, so that the count does not include one-time costs
    const long before = allocationCount();
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < repetitions; ++i)
        work();
    CALLGRIND_DUMP_STATS_AT(name);
    std::printf("%s: %d %ld\n", name, repetitions * operations, allocationCount() - before);
}

/// Counts the cost of assigning ready values to a record. No parse of a sentence can cost less.
void countRecord()
{
    SessionInit session;
    count("record", 1, [&] {
        session.clear();
        session.sentenceId = 1;
        session.fields[QStringLiteral("hwversion")] = QString::fromLatin1("7300021", 7);
        session.fields[QStringLiteral("v1")] = 1;
        session.fields[QStringLiteral("v2")] = 4;
        session.fields[QStringLiteral("v3")] = 0;
    });
}

void countParse(const char *name, const char *text, int fields)
{
    Nmea::ParserInit parser;
    parser.init();
    SessionInit session;
    const QString sentence = QString::fromLatin1(text);
    count(name, 1, [&] {
        session.clear();
        parser.parse(&session, sentence);
    });
    require(session.fields.size() == fields, "a sentence was not parsed");
}

void countBuild()
{
    Nmea::ParserInit parser;
    parser.init();
    SessionInit session;
    session.sentenceId = 2;
    session.fields[QStringLiteral("subcommand")] = QStringLiteral("INF");
    QString sentence;
    count("build", 1, [&] {
        QString out;
        parser.build(&session, out);
        sentence = out;
    });
    require(sentence == QLatin1String("$PTJWWR,INF*71\r\n"), "a sentence was not built");
}

/// Counts the cost of receiving and parsing `bytes`, in reads of `readSize` bytes. `bytes` contains `payloads`
/// payloads; `good` of these payloads are valid.
void countReceive(const char *name, const QByteArray &bytes, int readSize, int payloads, int good)
{
    StreamDevice device;
    Nmea::ParserInit parser;
    parser.init();
    Communicator communicator;
    communicator.setParser(&parser);
    communicator.setIODevice(&device);
    int received = 0;
    int filled = 0;
    SessionInit session;
    QObject::connect(&communicator, QOverload<>::of(&Communicator::readyRead), &communicator, [&] {
        session.clear();
        communicator.readPayload(&session);
        ++received;
        filled += session.fields.size() == 4;
    });
    count(name, good, [&] {
        for (int at = 0; at < bytes.size(); at += readSize)
            device.feed(bytes.constData() + at, std::min<qint64>(readSize, bytes.size() - at));
    });
    require(received == (repetitions + 1) * payloads && filled == (repetitions + 1) * good, "payloads were lost");
}

void countWrite()
{
    StreamDevice device;
    Communicator communicator;
    communicator.setIODevice(&device);
    const QString payload = QStringLiteral("$PJWVER*0c\r\n");
    count("write", 1, [&] { communicator.writePayload(payload); });
}

void countLog()
{
    const QString payload = QString::fromLatin1(versionReply);
    count("log below its level", 1,
          [&] { LOGGER_RECORD(Logger::Trace, "Communication").write() << "-> " << payload.trimmed(); });
}

} // namespace

int main()
{
    loggerInstance()->setLevel(Logger::Fatal); // otherwise the library prints an error for each bad sentence

    std::printf("versions: Qt %s, compiler %s, C library %s\n", qVersion(), __VERSION__, gnu_get_libc_version());
    countRecord();
    countParse("parse", versionReply, 4);
    countParse("parse many fields", informationReply, 8);
    countBuild();
    QByteArray clean;
    QByteArray dirty;
    for (int i = 0; i < 8; ++i) {
        clean.append(versionReply).append(versionReply).append(versionReply).append(versionReply);
        dirty.append(versionReply)
            .append("\x9b\x03,7*noise*\xff")
            .append(versionReply)
            .append("$PJWVER,7300")
            .append(versionReply)
            .append("$PJWVER,7300021,1,4,0*0f\r\n")
            .append(versionReply);
    }
    countReceive("receive", clean, 64, 32, 32);
    countReceive("receive byte by byte", clean, 1, 32, 32);
    countReceive("receive dirty", dirty, 64, 40, 32);
    countWrite();
    countLog();
    return 0;
}
