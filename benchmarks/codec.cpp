#include "perform.h"
#include "sentences.h"

#include <device/sessioninit.h>
#include <nmea/parserinit.h>

namespace {

/// The parser of a board. It parses the host's sentences, and builds the sentences that a host parses.
class BoardParser : public Nmea::ParserInit
{
public:
    BoardParser() { m_reversed = true; }

protected:
    QHash<QString, BuilderDelegate> initBuilderDelegates() override
    {
        QHash<QString, BuilderDelegate> delegates;
        const QHash<QString, ParserDelegate> fields = initParserDelegates();
        for (auto it = fields.keyBegin(); it != fields.keyEnd(); ++it)
            delegates[*it] = buildString;
        return delegates;
    }
};

template <typename Parser>
void parse(benchmark::State &state, const char *text)
{
    Parser parser;
    parser.init();
    JwDevice::SessionInit session;
    const QString sentence = QString::fromLatin1(text);
    perform(state, [&] {
        session.clear();
        parser.parse(&session, sentence);
        benchmark::ClobberMemory();
    });
}

void refuse(benchmark::State &state, const char *text)
{
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit session;
    const QString sentence = QString::fromLatin1(text);
    perform(state, [&] {
        session.clear();
        try {
            parser.parse(&session, sentence);
            state.SkipWithError("a bad sentence was parsed");
        } catch (const Nmea::Exception &exception) {
            benchmark::DoNotOptimize(exception);
        }
    });
}

/// Measures how long Parser takes to build the sentence `text`. First OtherSide, the parser of the other side, parses
/// `text` to fill the record.
template <typename Parser, typename OtherSide>
void build(benchmark::State &state, const char *text)
{
    OtherSide other;
    other.init();
    JwDevice::SessionInit session;
    other.parse(&session, QString::fromLatin1(text));
    Parser parser;
    parser.init();
    QString sentence;
    parser.build(&session, sentence);
    if (sentence != QLatin1String(text)) {
        state.SkipWithError("the sentence is not the one that was parsed");
        return;
    }
    perform(state, [&] {
        QString out;
        parser.build(&session, out);
        benchmark::DoNotOptimize(out);
    });
}

using HostParser = Nmea::ParserInit;
constexpr auto parseByHost = parse<HostParser>;
constexpr auto parseByBoard = parse<BoardParser>;
constexpr auto buildByHost = build<HostParser, BoardParser>;
constexpr auto buildByBoard = build<BoardParser, HostParser>;

BENCHMARK_CAPTURE(parseByHost, version, versionReply)->Name("parse/version reply");
BENCHMARK_CAPTURE(parseByHost, information, informationReply)->Name("parse/information reply");
BENCHMARK_CAPTURE(parseByBoard, request, informationRequest)->Name("parse/information request");
BENCHMARK_CAPTURE(refuse, checksum, "$PJWVER,7300021,1,4,0*0f\r\n")->Name("parse/wrong checksum");
BENCHMARK_CAPTURE(refuse, identifier, "$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n")->Name("parse/unknown identifier");

BENCHMARK_CAPTURE(buildByHost, version, versionQuery)->Name("build/version query");
BENCHMARK_CAPTURE(buildByHost, request, informationRequest)->Name("build/information request");
BENCHMARK_CAPTURE(buildByBoard, versionReply, versionReply)->Name("build/version reply");
BENCHMARK_CAPTURE(buildByBoard, information, informationReply)->Name("build/information reply");

} // namespace
