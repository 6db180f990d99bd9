#pragma once

#include "support/programs/neededprogram.h"
#include "support/programs/programrun.h"

#include <QFile>
#include <QHostAddress>
#include <QList>
#include <QString>
#include <QTcpServer>
#include <QTemporaryDir>

#include <memory>

#include <unistd.h>

/// Fails if a program that the code in this folder runs is missing. Write this in initTestCase(). If initTestCase()
/// fails, Qt runs no test function, so no function waits for the missing program.
#define NEEDS_MOSQUITTO                                                                                                \
    NEEDS_PROGRAM("mosquitto", "mosquitto");                                                                           \
    NEEDS_PROGRAM("mosquitto_pub", "mosquitto-clients");                                                               \
    NEEDS_PROGRAM("mosquitto_sub", "mosquitto-clients");                                                               \
    NEEDS_PROGRAM("pgrep", "procps")

/// A Mosquitto on a free loopback port. It can be stopped and started again on the same port. With its memory, it keeps
/// retained messages, and the messages for a Subscriber that is away.
class BrokerRun
{
public:
    enum Memory { WithMemory, WithoutMemory };
    enum Log { FullLog, QuietLog };

    /// `settings` are more lines of mosquitto's configuration. With a quiet log, log() has only what start() needs.
    explicit BrokerRun(const QByteArray &settings = QByteArray(), Log log = FullLog)
        : m_settings(settings)
        , m_logTypes(log == FullLog ? "log_type all\n" : "log_type information\nconnection_messages false\n")
        , m_port(freePort())
    {
    }

    static quint16 freePort()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost);
        return server.serverPort();
    }

    quint16 port() const { return m_port; }
    QString url(const QString &scheme = QStringLiteral("mqtt")) const
    {
        return QStringLiteral("%1://localhost:%2").arg(scheme).arg(m_port);
    }
    QString file(const QString &name) const { return m_folder.filePath(name); }

    void start()
    {
        QFile file(m_folder.filePath(QStringLiteral("mosquitto.conf")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("listener " + QByteArray::number(m_port) + " 127.0.0.1\npersistence true\npersistence_location "
                   + QFile::encodeName(m_folder.path()) + "/\nmax_queued_messages 1000000\n" + m_logTypes
                   + (::getuid() == 0 ? "user root\n" : "")
                   + (m_settings.contains("password_file") ? "" : "allow_anonymous true\n") + m_settings);
        file.close();
        m_run =
            std::make_unique<ProgramRun>(programFile("mosquitto"), QStringList{QStringLiteral("-c"), file.fileName()});
        m_run->start();
        WAIT_FOR(log().contains(" running"));
    }
    /// Ends the broker. Without memory, the next start() begins with nothing.
    void stop(Memory memory = WithMemory)
    {
        m_run.reset();
        if (memory == WithoutMemory)
            QFile::remove(m_folder.filePath(QStringLiteral("mosquitto.db")));
    }
    qint64 processId() const { return m_run ? m_run->processId() : 0; }
    QByteArray log() const { return m_run ? m_run->error() : QByteArray(); }

private:
    QTemporaryDir m_folder;
    const QByteArray m_settings;
    const QByteArray m_logTypes;
    const quint16 m_port;
    std::unique_ptr<ProgramRun> m_run;
};

/// A message as mosquitto_sub prints it.
struct ReceivedMessage
{
    QByteArray topic;
    bool isRetained;
    QByteArray properties; ///< user properties, for example "time:1 seq:2"
    QByteArray payload;

    qint64 property(const QByteArray &name) const
    {
        const QList<QByteArray> pairs = properties.split(' ');
        for (const QByteArray &pair : pairs) {
            if (pair.startsWith(name + ':'))
                return pair.mid(name.size() + 1).toLongLong();
        }
        return -1;
    }
};

/// A mosquitto_sub that receives all messages below jw/. The broker keeps messages for it while it is not connected.
class Subscriber
{
public:
    explicit Subscriber(const BrokerRun &broker, const QString &filter = QStringLiteral("jw/#"),
                        const QStringList &options = {})
        : m_broker(broker)
        , m_run(QStringLiteral("mosquitto_sub"),
                QStringList{QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-q"), QStringLiteral("1"),
                            QStringLiteral("-p"), QString::number(broker.port()), QStringLiteral("-t"), filter,
                            QStringLiteral("-c"), QStringLiteral("-i"), QStringLiteral("subscriber"),
                            QStringLiteral("-x"), QStringLiteral("3600"), QStringLiteral("-F"),
                            QStringLiteral("%t|%r|%P|%p")}
                    + options)
    {
    }

    void start()
    {
        m_run.start();
        WAIT_FOR(m_broker.log().contains("Sending SUBACK to subscriber"));
    }
    QByteArray output() const { return m_run.output(); }
    QList<ReceivedMessage> messages() const
    {
        QList<ReceivedMessage> messages;
        const QByteArray whole = m_run.output().left(m_run.output().lastIndexOf('\n') + 1);
        const QList<QByteArray> lines = linesOf(whole);
        for (const QByteArray &line : lines) {
            const QList<QByteArray> parts = line.split('|');
            if (parts.size() >= 4)
                messages.append({parts[0], parts[1] == "1", parts[2], parts.mid(3).join('|')});
        }
        return messages;
    }
    QList<ReceivedMessage> messages(const QByteArray &topic) const
    {
        QList<ReceivedMessage> found;
        const QList<ReceivedMessage> all = messages();
        for (const ReceivedMessage &message : all) {
            if (message.topic == topic)
                found.append(message);
        }
        return found;
    }
    /// Returns the payload of the newest message on `topic`.
    QByteArray newest(const QByteArray &topic) const
    {
        const QList<ReceivedMessage> found = messages(topic);
        return found.isEmpty() ? QByteArray() : found.last().payload;
    }

private:
    const BrokerRun &m_broker;
    ProgramRun m_run;
};
