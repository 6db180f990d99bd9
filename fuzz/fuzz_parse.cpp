// Gives any text to Nmea::ParserInit. This file contains a second, short implementation of the same parser. Both must
// fill the same record, or throw an Nmea::Exception with the same message.
#include "fuzzinput.h"

#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QHash>
#include <QMetaType>
#include <QStringList>

namespace {

struct Outcome
{
    QString message; ///< the message of the exception; null if the sentence is accepted
    JwDevice::SessionInit session;
};

bool operator==(const Outcome &a, const Outcome &b)
{
    return a.message == b.message && a.session.sentenceId == b.session.sentenceId
        && a.session.fields == b.session.fields;
}

// Reads a number as QString::toInt() of Qt 5 does. With Qt 6, toInt() does not skip all blanks, takes only the ASCII
// minus sign, and accepts a NUL after the number.
int readNumber(const QString &text, int base, bool *ok = nullptr)
{
    const QString written = text.trimmed().replace(QChar(0x2212), QLatin1Char('-'));
    bool isNumber = false;
    const int number = written.toInt(&isNumber, base);
    isNumber = isNumber && !written.contains(QChar::Null);
    if (ok)
        *ok = isNumber;
    return isNumber ? number : 0;
}

Outcome expectedBody(const QString &body)
{
    static const QHash<QString, int> keys = {
        {QStringLiteral("PJWVER"), 1}, {QStringLiteral("PTJWWR"), 2}, {QStringLiteral("PTJWRD"), 3}};
    static const QHash<int, QStringList> names = {
        {1, QStringLiteral("hwversion v1 v2 v3").split(QLatin1Char(' '))},
        {3, QStringLiteral("subcommand name devtype boardid rev version hwversion appmode").split(QLatin1Char(' '))}};

    QStringList parts = body.split(QLatin1Char(','));
    const QString identifier = parts.takeFirst();
    if (identifier.size() < 3)
        return {QStringLiteral("Wrong sentence description length"), {}};
    const int key = keys.value(identifier);
    if (key == 0)
        return {QStringLiteral("Undefined sentence ID: ") + identifier, {}};
    if (!names.contains(key))
        return {QStringLiteral("Format not found for sentence ID"), {}};

    Outcome outcome;
    outcome.session.sentenceId = key;
    if (parts.size() > names[key].size()) {
        outcome.message = QStringLiteral("Specified parameters list and formatting string incompatible");
        return outcome;
    }
    for (int i = 0; i < parts.size(); ++i) {
        const QString &name = names[key][i];
        const bool isNumber = key == 1 && i > 0;
        outcome.session.fields[name] = isNumber ? QVariant(readNumber(parts[i], 10)) : QVariant(parts[i]);
    }
    return outcome;
}

Outcome expected(const QString &text)
{
    if (text.isEmpty() || (text[0] != QLatin1Char('$') && text[0] != QLatin1Char('!')))
        return {QStringLiteral("Start flag not found"), {}};
    if (text.size() > 74)
        return {QStringLiteral("Sentence too long"), {}};
    if (text.right(2) != QLatin1String("\r\n"))
        return {QStringLiteral("Bad end"), {}};

    const QStringList parts = text.mid(1).split(QLatin1Char('*'));
    if (parts.size() > 2)
        return {QStringLiteral("Checksum field"), {}};
    if (parts.size() == 2) {
        bool isNumber = false;
        const int read = readNumber(parts[1], 16, &isNumber);
        if (!isNumber)
            return {QStringLiteral("Checksum misspelled"), {}};
        int checksum = 0;
        for (const QChar c : parts[0])
            checksum ^= c.unicode() <= 0xff ? c.unicode() : '?';
        if (read % 256 != checksum && read % 256 + 256 != checksum)
            return {QStringLiteral("CRC calculation failed"), {}};
    }
    return expectedBody(parts[0]);
}

Outcome parsed(Nmea::ParserInit &parser, const QString &text)
{
    Outcome outcome;
    try {
        expect(parser.parse(&outcome.session, text), "parse() returned false");
    } catch (const Nmea::Exception &exception) {
        outcome.message = exception.message();
        expect(!outcome.message.isEmpty(), "an exception without a message");
    }
    return outcome;
}

void checkTypes(const JwDevice::SessionInit &session)
{
    for (auto field = session.fields.cbegin(); field != session.fields.cend(); ++field) {
        const bool isNumber = field.key().startsWith(QLatin1Char('v')) && field.key().size() == 2;
        expect(field->userType() == (isNumber ? QMetaType::Int : QMetaType::QString), "a field of the wrong type");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FuzzedBytes fuzzed;
    fuzzed.add(size);
    static Nmea::ParserInit parser;
    parser.init();

    const QString text = textFromInput(data, size);
    const Outcome outcome = parsed(parser, text);
    const Outcome wanted = expected(text);
    if (!(outcome == wanted)) {
        reportFinding(QStringLiteral("expected \"%1\" (key %2), but was \"%3\" (key %4)")
                          .arg(wanted.message)
                          .arg(wanted.session.sentenceId)
                          .arg(outcome.message)
                          .arg(outcome.session.sentenceId));
    }
    checkTypes(outcome.session);
    expect(parsed(parser, text) == outcome, "parsing the same text again gave something else");
    return 0;
}
