#pragma once

#include "jwsimrun.h"

#include <unistd.h>

/// Runs `script` with /bin/sh where these boards are attached, and in a system of its own as far as it matters here: it
/// sees its own processes only, an empty /run (lock files, udev's database), and no rules of udev's but those in
/// /run/udev/rules.d and, with `keepRules`, the system's. `arguments` are the script's "$@".
inline Outcome runSandboxed(const QStringList &boards, const QString &script, const QStringList &arguments = {},
                            bool keepRules = false)
{
    // The simulated /dev takes up new folders, and the real one is wanted.
    QString prepare = QStringLiteral("set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/lock /run/udev/rules.d; "
                                     "env -u LD_PRELOAD mkdir -p /dev/char; mount -t tmpfs tmpfs /dev/char; ");
    if (!keepRules) {
        prepare +=
            QStringLiteral("for folder in /etc /usr/local/lib /usr/lib; do "
                           "if test -d $folder/udev/rules.d; then mount -t tmpfs tmpfs $folder/udev/rules.d; fi; "
                           "done; ");
    }
    QStringList command{QStringLiteral("unshare"), QStringLiteral("--mount"),      QStringLiteral("--pid"),
                        QStringLiteral("--fork"),  QStringLiteral("--kill-child"), QStringLiteral("--mount-proc")};
    if (::geteuid() != 0)
        command.append(QStringLiteral("--map-root-user"));
    command << QStringLiteral("sh") << QStringLiteral("-c") << prepare + QStringLiteral("set +e; ") + script
            << QStringLiteral("sh") << arguments;
    return runProgram(jwsimProgram(), simulated(boards, command));
}

/// Shell text that lets udev's own tool apply the rules to a port and to its USB device, as when it is plugged in. The
/// tool's output is in /run/PORT.log and /run/PORT-usb.log.
inline QString applyUdevRules(const QString &port)
{
    return QStringLiteral("path=$(readlink -f /sys/class/tty/%1); PATH=$PATH:/sbin:/usr/sbin; "
                          "udevadm test --action=add \"${path%/*/*/*}\" > /run/%1-usb.log 2>&1 && "
                          "udevadm test --action=add \"$path\" > /run/%1.log 2>&1 || "
                          "{ cat /run/%1*.log; exit 99; }; ")
        .arg(port);
}
