#include "options.h"
#include "program.h"
#include <jwprobe/doctor/doctorreport.h>
#include <jwprobe/doctor/udevrules.h>
#ifdef JWPROBE_HAS_FLEET
#include <jwprobe/fleet/fleetview.h>
#endif
#include <jwprobe/output/listreport.h>
#include <jwprobe/output/logoutput.h>
#include <jwprobe/output/output.h>
#include <jwprobe/watch/watch.h>

#include <QCoreApplication>

#include <fcntl.h>
#include <unistd.h>

using namespace JwProbe;

namespace {

// Opens /dev/null for each standard stream that is closed. Otherwise a serial port that is opened later could get the
// descriptor number of that stream. Then the program would write its output to the port.
void openStandardStreams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0)
            ::_exit(WrongUse);
    }
}

} // namespace

int main(int argc, char **argv)
{
    openStandardStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("jwprobe"));

    QString error;
    const std::optional<Options> options = parseOptions(QCoreApplication::arguments(), &error);
    if (!options) {
        complain(error);
        return WrongUse;
    }
    setUpLogOutput(*options);
    switch (options->action) {
    case Options::ShowHelp:
        return print(helpText()) ? 0 : 1;
    case Options::ShowVersion:
        return print(QStringLiteral("jwprobe " JWPROBE_VERSION "\n")) ? 0 : 1;
    case Options::List:
        return showList(*options);
    case Options::Doctor:
        return showDoctor(*options);
    case Options::ShowUdevRules:
        return print(udevRules()) ? 0 : 1;
    case Options::Watch:
        return runWatch(*options);
    case Options::Fleet:
#ifdef JWPROBE_HAS_FLEET
        return runFleet(*options);
#else
        complain(QStringLiteral("this jwprobe was built without --fleet: build it with JWDEVICE_BUILD_BRIDGE=ON"));
        return WrongUse;
#endif
    case Options::Find:
    case Options::Monitor:
        break;
    }

    Program program(*options);
    program.start();
    return QCoreApplication::exec();
}
