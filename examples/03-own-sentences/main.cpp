// Shows your own sentences: a record, a parser for host and board, and an exchange with a board.
#include <device/communicator.h>
#include <device/ipayloadparser.h>
#include <device/sessionabstract.h>
#include <nmea/parserabstract.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSerialPort>

struct Version : JwDevice::SessionAbstract
{
    int sentence = 0; // key of the sentence in the tables below; here always 1
    QString hardware; // the first field; the table below does not name the other fields, so the parser skips them
};

struct VersionParser : JwDevice::IPayloadParser, Nmea::ParserAbstract<Version>
{
    using Record = JwDevice::SessionAbstract; // here always a Version, because this parser fills no other record
    explicit VersionParser(bool boardSide) { m_reversed = boardSide; } // true: builds the sentences that a host parses
    bool parse(Record *to, const QString &text) override { return parseSentence(static_cast<Version *>(to), text); }
    bool build(const Record *from, QString &text) override { return write(static_cast<const Version *>(from), text); }
    bool write(const Version *from, QString &text) { return buildSentence(from, from->sentence, text); }
    static bool set(Version *to, const QString &text, const QString &) { return !(to->hardware = text).isNull(); }
    static QString get(const Version *from, const QString &) { return from->hardware; }
    QHash<int, QString> initSentenceIdentifiers() override { return {{1, QStringLiteral("PJWVER")}}; }
    QHash<int, QString> initSentenceFormatsParse() override { return {{1, QStringLiteral("hardware,,,")}}; }
    QHash<int, QString> initSentenceFormatsBuild() override { return {{1, QString()}}; }
    QHash<QString, ParserDelegate> initParserDelegates() override { return {{QStringLiteral("hardware"), set}}; }
    QHash<QString, BuilderDelegate> initBuilderDelegates() override { return {{QStringLiteral("hardware"), get}}; }
    void setSentenceId(Version *to, int key) override { to->sentence = key; }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    VersionParser parser(false); // declared before the Communicator that uses it, so deleted later
    parser.init();
    QSerialPort port(app.arguments().value(1, QStringLiteral("ttyACM0")));
    port.setBaudRate(115200);
    JwDevice::Communicator board;
    board.setIODevice(&port);
    board.setParser(&parser);
    Version version;
    version.sentence = 1;
    const bool asked = port.open(QIODevice::ReadWrite) && board.writePayload(&version) != 0;
    const QDeadlineTimer end(1000); // ms for all waits together, because each wait ends when a byte arrives
    while (asked && version.hardware.isEmpty() && !end.hasExpired()
           && (board.readPayload(&version) || port.waitForReadyRead(static_cast<int>(end.remainingTime())))) { }
    if (version.hardware.isEmpty()) {
        qCritical("%s: %s", qPrintable(port.portName()), asked ? "no version came" : qPrintable(port.errorString()));
        return 1;
    }
    VersionParser boardSide(true); // for your own simulated board; if you call a parser yourself, it throws on errors
    boardSide.init();
    QString sentence;
    boardSide.build(&version, sentence);
    qInfo("hardware %s; a board sends it as %s", qPrintable(version.hardware), qPrintable(sentence.trimmed()));
}
