#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTest>

#include <signal.h>

/// Time limit in ms, after which a program counts as hanging. It is long enough for a sanitizer on a busy machine.
constexpr int programPatience = 60000;

/// Runs the event loop until `condition` is true. The test fails if this takes longer than programPatience.
#define WAIT_FOR(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, programPatience)

/// One run of a program, with pipes for its standard streams. The destructor ends the program.
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
        // Send SIGTERM first, because jwsim then cleans up and ends the programs that it started.
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
        if (m_process.processId() > 0) // kill(0) would also end this test
            ::kill(static_cast<pid_t>(m_process.processId()), number);
    }

    /// Waits for the end of the program. Returns true if the program ended by itself; then output() and error() are
    /// complete.
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
    int status = -1; ///< exit status; -1 if the program did not end by itself
    QByteArray output;
    QByteArray error;
};

/// Runs a program until it ends. The program reads `input` from its standard input, and then the end of the file.
inline Outcome runProgram(const QString &program, const QStringList &arguments, const QByteArray &input = QByteArray())
{
    ProgramRun run(program, arguments);
    run.start();
    run.write(input);
    run.closeInput();
    const bool ended = run.finish();
    return {ended ? run.status() : -1, run.output(), run.error()};
}

/// Returns the lines of a text, without their line ends.
inline QList<QByteArray> linesOf(const QByteArray &text)
{
    QList<QByteArray> lines = text.split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}
