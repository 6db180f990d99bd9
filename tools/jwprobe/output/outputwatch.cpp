#include "outputwatch.h"

#include "output.h"

#include <QSocketNotifier>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

OutputWatch::OutputWatch(QObject *parent)
    : QObject(parent)
{
    struct stat status = {};
    const bool isPipe = ::fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
    if (!isPipe || (::fcntl(STDOUT_FILENO, F_GETFL) & O_ACCMODE) != O_WRONLY)
        return;
    auto *notifier = new QSocketNotifier(STDOUT_FILENO, QSocketNotifier::Read,
                                         this); // the write end is never readable, so this reports only errors
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
        notifier->setEnabled(false);
        std::raise(SIGPIPE); // the signal that a failed write sends
        complainOfOutput(QStringLiteral("nobody reads it any more"));
        Q_EMIT lost();
    });
}

} // namespace JwProbe
