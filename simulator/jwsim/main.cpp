#include <simulator/jwsim/arguments.h>
#include <simulator/jwsim/report.h>
#include <simulator/jwsim/runner.h>
#include <simulator/preload.h>
#include <simulator/testbed.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <cstdio>

using namespace JwSimulator;

namespace {

const int wrongUse = 2;
const int lastWords = 20; // milliseconds in which the boards still get what COMMAND wrote before it ended

void tell(const QString &text)
{
    std::fprintf(stderr, "jwsim: %s\n", qPrintable(text.simplified()));
}

int complain(const QString &text)
{
    tell(text);
    return wrongUse;
}

int run(const Arguments &arguments)
{
    QFile reportFile(arguments.reportFile);
    if (!arguments.reportFile.isEmpty() && !reportFile.open(QIODevice::WriteOnly))
        return complain(QStringLiteral("cannot write the report %1: %2; give a file that can be written")
                            .arg(arguments.reportFile, reportFile.errorString()));
    Runner runner;
    Testbed testbed;
    QString error;
    if (!testbed.add(arguments.boards, &error))
        return complain(error);
    if (arguments.boards.isEmpty())
        tell(QStringLiteral("no board is simulated; add one, for example --board BoardA"));
    testbed.restartClock();
    const int status = runner.run(arguments.command);
    if (!reportFile.isOpen())
        return status;
    QEventLoop loop;
    QTimer::singleShot(lastWords, &loop, &QEventLoop::quit);
    loop.exec();
    const QByteArray text = report(testbed);
    if (reportFile.write(text) != text.size() || !reportFile.flush())
        complain(
            QStringLiteral("the report %1 is not complete: %2").arg(arguments.reportFile, reportFile.errorString()));
    return status;
}

} // namespace

int main(int, char **argv)
{
    ensurePreloaded(argv);
    // The arguments are COMMAND's, and QCoreApplication would take out those that mean something to Qt.
    int count = 1;
    QCoreApplication application(count, argv);
    QString error;
    const std::optional<Arguments> arguments = Arguments::parse(argv, error);
    if (!arguments)
        return complain(error);
    switch (arguments->action) {
    case Arguments::Action::Help:
        std::fputs(qPrintable(Arguments::helpText()), stdout);
        return 0;
    case Arguments::Action::Version:
        std::puts("jwsim " JWSIM_VERSION);
        return 0;
    case Arguments::Action::Run:
        break;
    }
    return run(*arguments);
}
