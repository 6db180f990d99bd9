#pragma once

#include "support/common/portname.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QTemporaryDir>

inline QByteArray readFile(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Returns the command that examples/README.md shows for the example with this number.
inline QString commandOfPage(const char *number)
{
    const QString page = QString::fromUtf8(readFile(QStringLiteral(EXAMPLES_SOURCES "/README.md")));
    const QRegularExpression row(QStringLiteral("^\\| \\[%1\\].*\\| `([^`]+)` \\|$").arg(QLatin1String(number)),
                                 QRegularExpression::MultilineOption);
    return row.match(page).captured(1);
}

/// A copy of the folder examples. In the commands and in example 07, the copy has a serial port and a TCP port that
/// only this test uses. Otherwise two test runs at the same time would share a port.
class PageFolder
{
public:
    explicit PageFolder(quint16 tcpPort)
        : m_tcpPort(tcpPort)
    {
        const QDir examples(QStringLiteral(EXAMPLES_SOURCES));
        const QString network = QStringLiteral("07-board-over-network");
        QDir(m_folder.path()).mkpath(QStringLiteral("examples/") + network);
        const QStringList names = examples.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        for (const QString &name : names) {
            if (name != network)
                QFile::link(examples.filePath(name), path(name));
        }
        for (const QString &name : {QStringLiteral("/try"), QStringLiteral("/ser2net.yaml")}) {
            QFile file(path(network + name));
            if (file.open(QIODevice::WriteOnly))
                file.write(own(readFile(examples.filePath(network + name))));
            file.setPermissions(QFile::permissions(examples.filePath(network + name)));
        }
    }

    /// Returns the arguments for a shell that runs the command for the example with this number.
    QStringList command(const char *number) const
    {
        const QString script =
            QStringLiteral("cd \"$1\" && PATH=" JWSIM_FOLDER ":$PATH examples=" EXAMPLES_PROGRAMS " && exec %1")
                .arg(QString::fromUtf8(own(commandOfPage(number).toUtf8())));
        return {QStringLiteral("-c"), script, QStringLiteral("sh"), m_folder.path()};
    }

private:
    QString path(const QString &name) const { return m_folder.filePath(QStringLiteral("examples/") + name); }
    QByteArray own(QByteArray text) const
    {
        return text.replace("ttyACM0", m_port)
            .replace("ttyACM7", m_secondPort)
            .replace("3001", QByteArray::number(m_tcpPort))
            .replace("0BB9", QByteArray::number(m_tcpPort, 16).rightJustified(4, '0').toUpper());
    }

    const QTemporaryDir m_folder;
    const QByteArray m_port = uniquePortName().toLatin1();
    const QByteArray m_secondPort = uniquePortName().toLatin1();
    const quint16 m_tcpPort;
};

inline quint16 freeTcpPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}
