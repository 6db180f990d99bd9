// A sentence set of your own: its record, its parser for both sides of the line, and its use with a board.
#include <device/communicator.h>
#include <device/ipayloadparser.h>
#include <device/sessionabstract.h>
#include <nmea/parserabstract.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSerialPort>

struct Version : JwDevice::SessionAbstract
{
    int sentence = 0; // its key in the tables below: 1, as this small set has only one
    QString hardware; // the first field; the last three have no name in the table below, so they are passed over
};

struct VersionParser : JwDevice::IPayloadParser, Nmea::ParserAbstract<Version>
{
    using Record = JwDevice::SessionAbstract; // always a Version: a parser and its record belong together
    explicit VersionParser(bool boardSide) { m_reversed = boardSide; } // a board builds what the host parses
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
    VersionParser parser(false); // stays ours, as the port does; first in line, so that it goes last
    parser.init();
    QSerialPort port(app.arguments().value(1, QStringLiteral("ttyACM0")));
    port.setBaudRate(115200);
    JwDevice::Communicator board;
    board.setIODevice(&port);
    board.setParser(&parser);
    Version version;
    version.sentence = 1;
    const bool asked = port.open(QIODevice::ReadWrite) && board.writePayload(&version) != 0;
    const QDeadlineTimer end(1000); // for all of it: each wait alone begins anew with every byte
    while (asked && version.hardware.isEmpty() && !end.hasExpired()
           && (board.readPayload(&version) || port.waitForReadyRead(static_cast<int>(end.remainingTime())))) { }
    if (version.hardware.isEmpty()) {
        qCritical("%s: %s", qPrintable(port.portName()), asked ? "no version came" : qPrintable(port.errorString()));
        return 1;
    }
    VersionParser boardSide(true); // for a simulated board of your own; used directly, a parser throws what is wrong
    boardSide.init();
    QString sentence;
    boardSide.build(&version, sentence);
    qInfo("hardware %s, which a board tells by %s", qPrintable(version.hardware), qPrintable(sentence.trimmed()));
}
