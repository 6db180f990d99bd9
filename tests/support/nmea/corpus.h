#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QVector>

/// One sentence of a file in tests/data.
struct CorpusSentence
{
    QByteArray name; ///< line number and text of the sentence; tests use it as the name of a QTest data row
    QString section; ///< the text in the brackets above the sentence
    QString text;
};

/// Returns the text that `line` describes. The escapes are backslash r, backslash n, and backslash xHH with two
/// hexadecimal digits.
inline QString unescaped(const QByteArray &line)
{
    QString text;
    for (int i = 0; i < line.size(); ++i) {
        const char next = line[i] == '\\' && i + 1 < line.size() ? line[i + 1] : '\0';
        if (next == 'r' || next == 'n') {
            text += QLatin1Char(next == 'r' ? '\r' : '\n');
            i += 1;
        } else if (next == 'x') {
            text += QLatin1Char(static_cast<char>(line.mid(i + 2, 2).toInt(nullptr, 16)));
            i += 3;
        } else {
            text += QLatin1Char(line[i]);
        }
    }
    return text;
}

/// Returns the sentences of tests/data/`fileName`, in order. Empty if the file can't be read.
inline QVector<CorpusSentence> corpus(const QString &fileName)
{
    QVector<CorpusSentence> sentences;
    QFile file(QStringLiteral(JWDEVICE_TEST_DATA "/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        return sentences;
    QString section;
    for (int number = 1; !file.atEnd(); ++number) {
        QByteArray line = file.readLine();
        if (line.endsWith('\n'))
            line.chop(1);
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('['))
            section = unescaped(line.mid(1, line.size() - 2));
        else
            sentences.append({"line " + QByteArray::number(number) + ": " + line, section, unescaped(line)});
    }
    return sentences;
}
