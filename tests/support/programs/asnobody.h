#pragma once

#include <QString>

/// Shell text that runs the command "$@" with simulated boards, as a user who is in no group. Only root can run this
/// text. If that user can't reach the folder of the program, the program also gets the right to read all files.
inline const QString asNobody = QStringLiteral(
    "chmod -R o+rwX \"$UMOCKDEV_DIR\"; nobody='setpriv --reuid=65534 --regid=65534 --clear-groups'; "
    "$nobody test -x \"$1\" || nobody=\"$nobody --inh-caps +dac_read_search --ambient-caps +dac_read_search\"; "
    "exec $nobody \"$@\"");
