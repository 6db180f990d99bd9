// Builds a query with the host's parser and parses it with the board's parser. Or builds a reply with the board's
// parser and parses it with the host's parser. The parsed record must be equal to the record from which the sentence
// was built.
//
// The first byte of an input chooses the sentence. The other bytes are the texts of the fields, with commas between
// them.
#include "fuzzinput.h"

#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QStringList>

namespace {

using JwDevice::SessionInit;

/// The board's parser: the library's parser in the opposite direction, with build delegates for all fields of the
/// replies.
class BoardParser : public Nmea::ParserInit
{
public:
    BoardParser()
    {
        m_reversed = true;
        init();
    }

    QStringList fieldNames(int key) const { return m_formatsParse.value(key).split(m_formatSeparator); }

protected:
    QHash<QString, BuilderDelegate> initBuilderDelegates() override
    {
        QHash<QString, BuilderDelegate> delegates;
        for (const QString &format : initSentenceFormatsParse()) {
            for (const QString &name : format.split(m_formatSeparator))
                delegates[name] = &ParserInit::buildString;
        }
        return delegates;
    }
};

struct Direction
{
    int key;
    bool fromBoard;
    QStringList names;
};

SessionInit sessionFromInput(const Direction &direction, QString text)
{
    text.remove(QLatin1Char('*')); // a field can't contain "*", so remove it
    const QStringList texts = text.split(QLatin1Char(','));
    SessionInit session;
    session.sentenceId = direction.key;
    for (int i = 0; i < direction.names.size(); ++i) {
        const bool isNumber = direction.fromBoard && direction.key == 1 && i > 0;
        const QString &value = i < texts.size() ? texts[i] : QString();
        session.fields[direction.names[i]] = isNumber ? QVariant(value.toInt()) : QVariant(value);
    }
    return session;
}

/// Returns the checksum that `sentence` should have. If it is 0x80 or more, build() writes it in a form that parse()
/// refuses.
int checksumOf(const QString &sentence)
{
    int checksum = 0;
    for (int i = 1; sentence[i] != QLatin1Char('*'); ++i)
        checksum ^= sentence[i].unicode() <= 0xff ? sentence[i].unicode() : '?';
    return checksum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FuzzedBytes fuzzed;
    fuzzed.add(size);
    if (size == 0)
        return 0;
    static BoardParser board;
    static Nmea::ParserInit host;
    host.init();
    static const Direction directions[] = {{1, true, board.fieldNames(1)},
                                           {3, true, board.fieldNames(3)},
                                           {2, false, {QStringLiteral("subcommand")}},
                                           {1, false, {}}};

    const Direction &direction = directions[data[0] % std::size(directions)];
    Nmea::ParserInit &builder = direction.fromBoard ? board : host;
    Nmea::ParserInit &reader = direction.fromBoard ? host : board;

    SessionInit session = sessionFromInput(direction, textFromInput(data + 1, size - 1));
    QString sentence;
    expect(builder.build(&session, sentence), "build() returned false");

    QString message;
    SessionInit back;
    try {
        expect(reader.parse(&back, sentence), "parse() returned false");
    } catch (const Nmea::Exception &exception) {
        message = exception.message();
    }
    if (sentence.size() > 74) {
        expect(message == QLatin1String("Sentence too long"), "a sentence that is too long was not refused as such");
    } else if (checksumOf(sentence) >= 0x80) {
        expect(message == QLatin1String("Checksum misspelled"), "a checksum beyond ASCII was not refused as such");
    } else {
        expect(message.isEmpty(), "a built sentence was refused");
        // A sentence whose only field is empty is built without fields, so parse() finds no field either.
        if (!direction.fromBoard && session.fields.value(QStringLiteral("subcommand")).toString().isEmpty())
            session.fields.clear();
        expect(back.sentenceId == session.sentenceId, "another sentence came back");
        expect(back.fields == session.fields, "other fields came back");
    }
    return 0;
}
