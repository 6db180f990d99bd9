#pragma once

#include <device/ipayloadparser.h>
#include <device/sessioninit.h>
#include <nmea/parserabstract.h>

namespace Nmea {

QT_WARNING_PUSH // no warning about the virtual destructor, which is missing on purpose; see ParserAbstract
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The parser for the queries that ask a board which type it is, and for the replies. JwDevice::SentenceKey lists the
 * keys.
 *
 * \verbatim
 * Version query, host to board              Version reply, board to host
 *
 *  1      2                                  1      2       3  4  5  6
 *  |      |                                  |      |       |  |  |  |
 *  $PJWVER*0c<CR><LF>                        $PJWVER,7300021,1,4,0*0e<CR><LF>
 *
 *  1 identifier, key 1                       1 identifier, key 1
 *  2 checksum                                2 hwversion  hardware version, text
 *                                            3 v1  4 v2  5 v3  version numbers, int
 *                                            6 checksum
 *
 * Information request, host to board        Information reply, board to host
 *
 *  1      2   3                              1      2   3    4 5  6 7    8       9 10
 *  |      |   |                              |      |   |    | |  | |    |       | |
 *  $PTJWWR,INF*71<CR><LF>                    $PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e<CR><LF>
 *
 *  1 identifier, key 2                       1 identifier, key 3
 *  2 subcommand                              2 subcommand  3 name     4 devtype    5 boardid
 *  3 checksum                                6 rev         7 version  8 hwversion  9 appmode   (all text)
 *                                            10 checksum
 * \endverbatim
 *
 * Each sentence works only in the directions above: parsing key 2 throws, and building key 3 throws. The record of
 * parse() and build() is a JwDevice::SessionInit. Call init() once after construction.
 */
class JWDEVICE_EXPORT ParserInit : public JwDevice::IPayloadParser, public ParserAbstract<JwDevice::SessionInit>
{
public:
    ParserInit();
    ~ParserInit() override;

    /// Parses a sentence, see JwDevice::IPayloadParser::parse. `session` must be a JwDevice::SessionInit.
    bool parse(JwDevice::SessionAbstract *session, const QString &sentence) override;
    /// Builds the sentence with the key `sentenceId` in `session`, which must be a JwDevice::SessionInit.
    bool build(const JwDevice::SessionAbstract *session, QString &sentence) override;

    /// Stores `value` as an int in the field `name`. Stores 0 if `value` is no number. Returns true.
    static bool parseInt(JwDevice::SessionInit *session, const QString &value, const QString &name);
    /// Stores `value` as a text in the field `name`, even if `value` is empty. Returns true.
    static bool parseString(JwDevice::SessionInit *session, const QString &value, const QString &name);
    /// Returns the text of the field `name`. Empty if the record does not contain the field.
    static QString buildString(const JwDevice::SessionInit *session, const QString &name);

protected:
    QHash<int, QString> initSentenceIdentifiers() override;
    QHash<int, QString> initSentenceFormatsParse() override;
    QHash<int, QString> initSentenceFormatsBuild() override;
    QHash<QString, ParserDelegate> initParserDelegates() override;
    QHash<QString, BuilderDelegate> initBuilderDelegates() override;
    void setSentenceId(JwDevice::SessionInit *session, int sentenceId) override;
};

QT_WARNING_POP

} // namespace Nmea
