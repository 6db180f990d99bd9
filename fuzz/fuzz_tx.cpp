// Gives any topic and any message to the code of jwbridge that decides what a board gets. An input is the topic, a line
// feed, and the message.
#include "fuzzinput.h"

#include <fleet/topics.h>
#include <jwbridge/txline.h>

#include <algorithm>

namespace {

// Checks that the part of the topic is one level, and names one board.
void checkTopic(const QByteArray &topic)
{
    static const JwFleet::Topics topics(QStringLiteral("jw"), QStringLiteral("here"));
    const QByteArray part = topics.partOfTx(topic);
    if (part.isEmpty())
        return;
    expect(!part.contains('/'), "a board's part of the topic has more than one level");
    expect(topics.tx(part) == topic, "the part of a topic leads to another topic");
    const QByteArray again = JwFleet::Topics::escaped(JwFleet::Topics::unescaped(part));
    expect(std::none_of(again.begin(), again.end(), [](char c) { return c == '/' || c == '+' || c == '#'; }),
           "an escaped id has a character with a meaning in topics");
}

// Checks that the sentence is one printable line, with the right checksum.
void checkSentence(const QString &sentence)
{
    expect(sentence.size() >= 6 && sentence.size() <= 74, "a sentence has a wrong length");
    expect(sentence.startsWith(QLatin1Char('$')) || sentence.startsWith(QLatin1Char('!')), "no start flag");
    expect(sentence.endsWith(QLatin1String("\r\n")), "no line end");
    const QString line = sentence.chopped(2);
    expect(std::all_of(line.begin(), line.end(), [](QChar c) { return c.isPrint() && c.unicode() <= 0xff; }),
           "a character that is not printable");
    const auto star = line.indexOf(QLatin1Char('*'));
    expect(star > 0, "no checksum");
    int checksum = 0;
    for (const QChar c : line.mid(1, star - 1))
        checksum ^= c.unicode();
    bool isNumber = false;
    const qulonglong written =
        line.mid(star + 1).toULongLong(&isNumber, 16); // a checksum of 0x80 or more has 16 digits
    expect(isNumber && (written & 0xff) == static_cast<qulonglong>(checksum), "a wrong checksum");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FuzzedBytes fuzzed;
    fuzzed.add(size);
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const auto end = input.indexOf('\n');
    checkTopic(input.left(end));
    const JwBridge::TxLine line(input.mid(end + 1));
    expect(line.sentence().isEmpty() != line.fault().isEmpty(), "neither a sentence nor a fault, or both");
    if (line.fault().isEmpty()) {
        checkSentence(line.sentence());
        const JwBridge::TxLine again(line.sentence().toUtf8());
        expect(again.sentence() == line.sentence(), "a whole sentence is changed");
    }
    return 0;
}
