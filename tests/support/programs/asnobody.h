#pragma once

#include <QString>

/// Shell text that runs "$@" where boards are simulated, as somebody who belongs to no group. Only root can do that.
/// The right to read everything is added if the program lies in a folder that is closed to others.
inline const QString asNobody = QStringLiteral(
    "chmod -R o+rwX \"$UMOCKDEV_DIR\"; nobody='setpriv --reuid=65534 --regid=65534 --clear-groups'; "
    "$nobody test -x \"$1\" || nobody=\"$nobody --inh-caps +dac_read_search --ambient-caps +dac_read_search\"; "
    "exec $nobody \"$@\"");
