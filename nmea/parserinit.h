#pragma once

#include <device/ipayloadparser.h>
#include <device/sessioninit.h>
#include <nmea/parserabstract.h>

namespace Nmea {

QT_WARNING_PUSH // see ParserAbstract
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * The queries that ask a board which type it is, and the replies. JwDevice::SentenceKey has the keys.
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
 * The other directions throw: key 2 can't be parsed, key 3 can't be built. The record of parse() and build() is a
 * JwDevice::SessionInit. Call init() once after construction.
 */
class JWDEVICE_EXPORT ParserInit : public JwDevice::IPayloadParser, public ParserAbstract<JwDevice::SessionInit>
{
public:
    ParserInit();
    ~ParserInit() override;

    /// See JwDevice::IPayloadParser::parse; `session` must be a JwDevice::SessionInit.
    bool parse(JwDevice::SessionAbstract *session, const QString &sentence) override;
    /// Builds the sentence named by the session's own sentenceId; `session` must be a JwDevice::SessionInit.
    bool build(const JwDevice::SessionAbstract *session, QString &sentence) override;

    /// Stores `value` as an int under `name`; 0 if it is no number. Returns true.
    static bool parseInt(JwDevice::SessionInit *session, const QString &value, const QString &name);
    /// Stores `value` as a text under `name`, also if it is empty. Returns true.
    static bool parseString(JwDevice::SessionInit *session, const QString &value, const QString &name);
    /// The text of field `name`; empty if the record lacks it.
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
