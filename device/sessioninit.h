#pragma once

#include <device/sessionabstract.h>

#include <QHash>
#include <QString>
#include <QVariant>

namespace JwDevice {

QT_WARNING_PUSH // see SessionAbstract
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The record of one sentence of Nmea::ParserInit. Parsing adds fields to the record: clear() it before each use.
 */
class JWDEVICE_EXPORT SessionInit : public SessionAbstract
{
public:
    SessionInit();

    /// Sets sentenceId to 0 and empties the fields.
    void clear() override;

    /// The key of the sentence, see SentenceKey; 0 is no sentence. The parser sets it while parsing; the caller sets it
    /// before building.
    int sentenceId = 0;
    /// Field name to value: numbers as int, texts as QString. A field that the sentence did not have is absent. For
    /// building, any variant that converts to a string is fine.
    QHash<QString, QVariant> fields;
};

QT_WARNING_POP

} // namespace JwDevice
