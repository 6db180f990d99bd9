#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTest>

#include <signal.h>

/// Long enough for sanitized programs on a busy machine: it only ends what hangs.
constexpr int programPatience = 60000; // milliseconds

/// Waits, with the event loop running, until `condition` holds.
#define WAIT_FOR(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, programPatience)

/// One run of a program, with pipes for its standard streams. It is ended when it outlives this object.
class ProgramRun
{
public:
    ProgramRun(const QString &program, const QStringList &arguments)
    {
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput,
                         [this] { m_output += m_process.readAllStandardOutput(); });
        QObject::connect(&m_process, &QProcess::readyReadStandardError,
                         [this] { m_error += m_process.readAllStandardError(); });
        m_process.setProgram(program);
        m_process.setArguments(arguments);
    }
    ~ProgramRun()
    {
        // Politely first: jwsim cleans up then, and takes what it started along.
        m_process.terminate();
        if (!m_process.waitForFinished(programPatience)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    ProgramRun(const ProgramRun &) = delete;
    ProgramRun &operator=(const ProgramRun &) = delete;

    void setEnvironment(const QString &name, const QString &value)
    {
        QProcessEnvironment environment = m_process.processEnvironment();
        if (environment.isEmpty())
            environment = QProcessEnvironment::systemEnvironment();
        environment.insert(name, value);
        m_process.setProcessEnvironment(environment);
    }

    void start() { m_process.start(); }
    void write(const QByteArray &input) { m_process.write(input); }
    void closeInput() { m_process.closeWriteChannel(); }
    void sendSignal(int number)
    {
        if (m_process.processId() > 0) // 0 would be all processes of our group: the whole test run
            ::kill(static_cast<pid_t>(m_process.processId()), number);
    }

    /// Whether it ended by itself; then the streams are complete.
    bool finish()
    {
        return (isOver() || m_process.waitForFinished(programPatience))
            && m_process.exitStatus() == QProcess::NormalExit;
    }
    bool isOver() const { return m_process.state() == QProcess::NotRunning; }
    int status() const { return m_process.exitCode(); }
    QByteArray output() const { return m_output; }
    QByteArray error() const { return m_error; }
    qint64 processId() const { return m_process.processId(); }

private:
    QProcess m_process;
    QByteArray m_output;
    QByteArray m_error;
};

struct Outcome
{
    int status = -1; ///< -1: it did not end by itself
    QByteArray output;
    QByteArray error;
};

/// Runs a program to its end. Its standard input is `input` and its end.
inline Outcome runProgram(const QString &program, const QStringList &arguments, const QByteArray &input = QByteArray())
{
    ProgramRun run(program, arguments);
    run.start();
    run.write(input);
    run.closeInput();
    const bool ended = run.finish();
    return {ended ? run.status() : -1, run.output(), run.error()};
}

/// The lines of a text, without their ends.
inline QList<QByteArray> linesOf(const QByteArray &text)
{
    QList<QByteArray> lines = text.split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}
