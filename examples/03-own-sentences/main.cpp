// A sentence set of your own: its record, its parser for both sides of the line, and its use with a board.
#include <device/communicator.h>
#include <device/ipayloadparser.h>
#include <device/sessionabstract.h>
#include <nmea/parserabstract.h>

#include <QCoreApplication>
#include <QSerialPort>
#include <QTextStream>

struct Version : JwDevice::SessionAbstract
{
    int sentence = 1; // its key in the tables below; this small set has only one
    QString hardware;
};

class VersionParser : public JwDevice::IPayloadParser, public Nmea::ParserAbstract<Version>
{
public:
    using Record = JwDevice::SessionAbstract; // always a Version: a parser and its record belong together
    explicit VersionParser(bool boardSide) { m_reversed = boardSide; } // a board builds what the host parses
    bool parse(Record *to, const QString &text) override { return parseSentence(static_cast<Version *>(to), text); }
    bool build(const Record *from, QString &text) override { return write(static_cast<const Version *>(from), text); }

private:
    bool write(const Version *from, QString &text) { return buildSentence(from, from->sentence, text); }
    static bool set(Version *to, const QString &text, const QString &) { return !(to->hardware = text).isNull(); }
    static QString get(const Version *from, const QString &) { return from->hardware; }
    QHash<int, QString> initSentenceIdentifiers() override { return {{1, QStringLiteral("PJWVER")}}; }
    // The fields in their order by name; one without a name, as the last three here, is passed over.
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
    JwDevice::Communicator board;
    board.setIODevice(&port);
    board.setParser(&parser);
    Version version;
    const bool asked = port.open(QIODevice::ReadWrite) && board.writePayload(&version) != 0;
    while (asked && !board.readPayload(&version) && port.waitForReadyRead(1000)) { }
    if (version.hardware.isEmpty()) {
        QTextStream(stderr) << "no version from " << port.portName() << ": " << port.errorString() << Qt::endl;
        return 1;
    }
    VersionParser boardSide(true); // for a simulated board of your own; used directly, a parser throws what is wrong
    boardSide.init();
    QString sentence;
    boardSide.build(&version, sentence);
    QTextStream(stdout) << "hardware " << version.hardware << ", which a board tells by " << sentence << Qt::flush;
}
