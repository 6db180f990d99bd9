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
 * The record of one initialization sentence, see Nmea::ParserInit.
 *
 * Parsing adds to what the record holds: clear() it before each use.
 */
class JWDEVICE_EXPORT SessionInit : public SessionAbstract
{
public:
    SessionInit();

    /// Sets sentenceId to 0 and empties the fields.
    void clear() override;

    /// Key of the sentence: 1 "PJWVER", 2 "PTJWWR", 3 "PTJWRD"; 0 is no sentence. Set by the parser when it parses, by
    /// the caller before it builds.
    int sentenceId = 0;
    /// Field name to value: numbers as int, texts as QString. A field that the sentence did not carry is absent. To
    /// build, any variant that converts to a string will do.
    QHash<QString, QVariant> fields;
};

QT_WARNING_POP

} // namespace JwDevice
