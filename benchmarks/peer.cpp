// Measures Qt's own sentence parser (Qt Positioning), to compare this library with it.
#include "perform.h"

#include <QGeoPositionInfo>
#include <QNmeaPositionInfoSource>

#include <cstring>

namespace {

class Source : public QNmeaPositionInfoSource
{
public:
    Source()
        : QNmeaPositionInfoSource(SimulationMode)
    {
    }
    bool parse(const char *sentence, QGeoPositionInfo &info)
    {
        bool hasFix = false;
        return parsePosInfoFromNmeaData(sentence, static_cast<int>(std::strlen(sentence)), &info, &hasFix) && hasFix;
    }
};

void parseByQtPositioning(benchmark::State &state)
{
    const char *const sentence = "$GPRMC,123519.00,A,4807.03812,N,01131.000456,E,022.4,084.4,230394,,*0B\r\n";
    Source source;
    QGeoPositionInfo info;
    if (!source.parse(sentence, info))
        state.SkipWithError("Qt Positioning refuses the sentence");
    perform(state, [&] {
        info = QGeoPositionInfo();
        source.parse(sentence, info);
        benchmark::DoNotOptimize(info);
    });
}

BENCHMARK(parseByQtPositioning)->Name("peer/Qt Positioning");

} // namespace
