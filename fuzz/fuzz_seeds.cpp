// Writes the fuzzers' first inputs, made from the sentences in tests/data. Usage: fuzz_seeds FOLDER. Each fuzzer gets a
// folder of files and a list of their names for libFuzzer's option -seed_inputs.
#include "support/nmea/corpus.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

namespace {

class SeedFolder
{
public:
    SeedFolder(const QString &folder, const QString &fuzzer)
        : m_path(folder + QLatin1Char('/') + fuzzer)
    {
        QDir(m_path).removeRecursively();
        m_ok = QDir().mkpath(m_path);
    }

    void add(const QByteArray &input)
    {
        const QString path = m_path + QStringLiteral("/%1").arg(m_paths.size(), 3, 10, QLatin1Char('0'));
        write(path, input);
        m_paths += path;
    }
    bool finish()
    {
        write(m_path + QStringLiteral(".list"), m_paths.join(QLatin1Char(',')).toLocal8Bit());
        return m_ok && !m_paths.isEmpty();
    }

private:
    void write(const QString &path, const QByteArray &content)
    {
        QFile file(path);
        m_ok = m_ok && file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }

    const QString m_path;
    QStringList m_paths;
    bool m_ok = false;
};

/// Returns the input bytes of one step of fuzz_receive: `bytes` arrive at the device of the Communicator number `line`.
QByteArray arrival(char line, const QByteArray &bytes)
{
    constexpr char plainDelivery = 3 * 4;
    return QByteArray(1, static_cast<char>(plainDelivery + line)) + static_cast<char>(bytes.size()) + bytes;
}

} // namespace

int main(int argc, char **argv)
{
    QTextStream err(stderr);
    if (argc != 2) {
        err << "Usage: fuzz_seeds FOLDER\n";
        return 2;
    }
    const QString folder = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    SeedFolder parse(folder, QStringLiteral("fuzz_parse"));
    SeedFolder roundtrip(folder, QStringLiteral("fuzz_roundtrip"));
    SeedFolder receive(folder, QStringLiteral("fuzz_receive"));
    SeedFolder tx(folder, QStringLiteral("fuzz_tx"));

    QByteArray everything(1, '\0');
    const QString files[] = {QStringLiteral("valid.nmea"), QStringLiteral("tolerated.nmea"),
                             QStringLiteral("invalid.nmea")};
    for (const QString &file : files) {
        for (const CorpusSentence &sentence : corpus(file)) {
            const QByteArray bytes = sentence.text.toLatin1();
            const auto half = bytes.size() / 2;
            const QByteArray fields = bytes.mid(bytes.indexOf(',') + 1);
            parse.add(bytes);
            tx.add("jw/here/boards/S1:1.0/tx\n" + bytes);
            roundtrip.add((sentence.section == QLatin1String("3") ? '\1' : '\0') + fields);
            roundtrip.add('\2' + fields);
            receive.add('\0' + arrival(0, bytes));
            receive.add('\1' + arrival(0, bytes.left(half)) + arrival(1, bytes.mid(half)));
            everything += arrival(0, bytes);
        }
    }
    receive.add(everything);
    if (!parse.finish() || !roundtrip.finish() || !receive.finish() || !tx.finish()) {
        err << "fuzz_seeds: can't read " << QStringLiteral(JWDEVICE_TEST_DATA) << " or write " << folder
            << ": check that both are there and may be used\n";
        return 1;
    }
    return 0;
}
