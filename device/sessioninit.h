#pragma once

#include <device/sessionabstract.h>

#include <QHash>
#include <QString>
#include <QVariant>

namespace JwDevice {

QT_WARNING_PUSH // no warning about the virtual destructor, which is missing on purpose; see SessionAbstract
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The record of one sentence of Nmea::ParserInit. Parsing only adds fields, so call clear() before each use.
 */
class JWDEVICE_EXPORT SessionInit : public SessionAbstract
{
public:
    SessionInit();

    /// Sets sentenceId to 0 and empties the fields.
    void clear() override;

    /// The key of the sentence (see SentenceKey), or 0 for no sentence. The parser sets the key when it parses. Set the
    /// key yourself before you build a sentence.
    int sentenceId = 0;
    /// The values of the fields by field name. Parsing stores only the fields that the sentence contains: numbers as
    /// int, texts as QString. For building, use any value that QVariant can convert to a string.
    QHash<QString, QVariant> fields;
};

QT_WARNING_POP

} // namespace JwDevice
