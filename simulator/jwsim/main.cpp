#include <simulator/jwsim/arguments.h>
#include <simulator/jwsim/report.h>
#include <simulator/jwsim/runner.h>
#include <simulator/preload.h>
#include <simulator/testbed.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

using namespace JwSimulator;

namespace {

constexpr int wrongUse = 2;
constexpr int notWritten = 125; // output or report; not 126 or 127, which mean that COMMAND was not started
constexpr int lastWords = 20; // milliseconds that the boards get to receive the last bytes that COMMAND wrote

int complain(const QString &text, int status = wrongUse)
{
    std::fprintf(stderr, "jwsim: %s\n", qPrintable(text.simplified()));
    return status;
}

int print(const QString &text)
{
    if (std::fputs(qPrintable(text), stdout) >= 0 && std::fflush(stdout) == 0)
        return 0;
    return complain(QStringLiteral("cannot write to standard output: %1").arg(qt_error_string(errno)), notWritten);
}

// Returns whether the file can be written. Does not open the file, because opening would empty the file, even if
// COMMAND then does not start.
bool canWrite(const QString &fileName)
{
    const QFileInfo file(fileName);
    if (file.isDir()) {
        errno = EISDIR;
        return false;
    }
    const QString target = file.exists() ? fileName : file.path() + QLatin1String("/.");
    return ::access(QFile::encodeName(target).constData(), W_OK) == 0;
}

int writeReport(const QString &fileName, const Testbed &testbed, int status)
{
    QFile file(fileName);
    const QByteArray text = report(testbed);
    if (file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush())
        return status;
    const int failed = status == 0 ? notWritten : status;
    return complain(QStringLiteral("cannot write the report %1: %2").arg(fileName, file.errorString()), failed);
}

int run(const Arguments &arguments)
{
    if (!arguments.reportFile.isEmpty() && !canWrite(arguments.reportFile))
        return complain(QStringLiteral("cannot write the report %1: %2; give a file that can be written")
                            .arg(arguments.reportFile, qt_error_string(errno)));
    Runner runner;
    Testbed testbed;
    QString error;
    if (!testbed.add(arguments.boards, &error))
        return complain(error);
    if (arguments.boards.isEmpty())
        complain(QStringLiteral("no board is simulated; add one, for example --board BoardA"));
    testbed.restartClock();
    const int status = runner.run(arguments.command);
    if (arguments.reportFile.isEmpty() || !runner.hasStarted())
        return status;
    QEventLoop loop;
    QTimer::singleShot(lastWords, &loop, &QEventLoop::quit);
    loop.exec();
    return writeReport(arguments.reportFile, testbed, status);
}

} // namespace

int main(int, char **argv)
{
    ensurePreloaded(argv);
    // QCoreApplication gets only the program's name. Otherwise QCoreApplication would remove options of Qt from the
    // command line, but these options are for COMMAND.
    int count = 1;
    QCoreApplication application(count, argv);
    QString error;
    const std::optional<Arguments> arguments = Arguments::parse(argv, error);
    if (!arguments)
        return complain(error);
    switch (arguments->action) {
    case Arguments::Action::Help:
        return print(Arguments::helpText());
    case Arguments::Action::Version:
        return print(QStringLiteral("jwsim " JWSIM_VERSION "\n"));
    case Arguments::Action::Run:
        break;
    }
    return run(*arguments);
}
