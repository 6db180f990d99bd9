#pragma once

#include "jwsimrun.h"
#include "neededprogram.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMap>
#include <QMetaMethod>

#include <cstdio>

#include <unistd.h>

/// Marks of test functions that need a right. Write the mark before the function's `void`; see runSandboxTest().
#ifndef Q_MOC_RUN
#define SANDBOXED // calls runSandboxed()
#define SANDBOXED_USERS // calls runSandboxed(), and needs other users in the sandbox
#define AS_ROOT // needs the user root, but no sandbox
#endif

/// The kind of sandbox that this machine allows this user. In a sandbox, a program sees only its own processes and its
/// own mounted folders; see runSandboxed().
struct Sandbox
{
    enum Kind {
        Refused,
        OfOneUser, ///< has only one user: this user, who has the rights of root inside the sandbox
        OfAllUsers,
    };
    Kind kind = Refused;
    QString refusal; ///< why a better kind is refused

    static const Sandbox &allowed()
    {
        static const Sandbox sandbox = ::geteuid() == 0 ? tried({OfAllUsers, OfOneUser}) : tried({OfOneUser});
        return sandbox;
    }
    static QStringList command(Kind kind, const QString &script)
    {
        QStringList command{QStringLiteral("unshare"), QStringLiteral("--mount"),      QStringLiteral("--pid"),
                            QStringLiteral("--fork"),  QStringLiteral("--kill-child"), QStringLiteral("--mount-proc")};
        if (kind == OfOneUser)
            command.append(QStringLiteral("--map-root-user"));
        return command << QStringLiteral("sh") << QStringLiteral("-c") << script << QStringLiteral("sh");
    }

private:
    static Sandbox tried(std::initializer_list<Kind> kinds)
    {
        Sandbox sandbox;
        for (const Kind kind : kinds) {
            const QStringList trial = command(kind, QStringLiteral("mount -t tmpfs tmpfs /run"));
            const Outcome outcome = runProgram(trial.first(), trial.mid(1));
            if (outcome.status == 0)
                return {kind, sandbox.refusal};
            if (sandbox.refusal.isEmpty())
                sandbox.refusal = QString::fromLocal8Bit(outcome.error).section(QLatin1Char('\n'), 0, 0);
        }
        return sandbox;
    }
};

/// Returns the class of the test with marked functions. SANDBOX_TEST_MAIN sets this class.
inline const QMetaObject *&sandboxedTest()
{
    static const QMetaObject *meta = nullptr;
    return meta;
}

/// Returns the mark of a test function, for example "SANDBOXED". Empty if the function has no mark.
inline QByteArray markOf(const QByteArray &function)
{
    const int index = sandboxedTest() ? sandboxedTest()->indexOfSlot(function + "()") : -1;
    return index >= 0 ? QByteArray(sandboxedTest()->method(index).tag()) : QByteArray();
}

/// Returns why the functions with this mark can't run. Empty if they can.
inline QString reasonToLeaveOut(const QByteArray &mark)
{
    const bool isRoot = ::geteuid() == 0;
    if (mark.isEmpty() || (mark == "AS_ROOT" && isRoot))
        return QString();
    if (!isRoot && mark != "SANDBOXED")
        return QStringLiteral("this user is not root");
    const Sandbox &sandbox = Sandbox::allowed();
    if (sandbox.kind == Sandbox::OfAllUsers || (sandbox.kind == Sandbox::OfOneUser && mark == "SANDBOXED"))
        return QString();
    return QStringLiteral("this system refuses namespaces (%1)").arg(sandbox.refusal);
}

/// Runs `script` with /bin/sh and these boards, in a sandbox. `arguments` are the script's "$@". The script sees only
/// its own processes. Its /run is empty: it has no lock files and no database of udev. The script sees only the udev
/// rules in /run/udev/rules.d; with `keepRules` also the system's rules. Call this only in functions marked SANDBOXED
/// or SANDBOXED_USERS.
inline Outcome runSandboxed(const QStringList &boards, const QString &script, const QStringList &arguments = {},
                            bool keepRules = false)
{
    // An unmarked function would fail on machines that refuse a sandbox.
    if (!markOf(QTest::currentTestFunction()).startsWith("SANDBOXED"))
        qFatal("%s() uses a sandbox: write SANDBOXED before it in its class", QTest::currentTestFunction());
    // LD_PRELOAD contains the library that simulates /dev. Run mkdir without this library, because otherwise mkdir
    // would make the folder in the simulated /dev.
    QString prepare = QStringLiteral("set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/lock /run/udev/rules.d; "
                                     "env -u LD_PRELOAD mkdir -p /dev/char; mount -t tmpfs tmpfs /dev/char; ");
    if (!keepRules) {
        prepare +=
            QStringLiteral("for folder in /etc /usr/local/lib /usr/lib; do "
                           "if test -d $folder/udev/rules.d; then mount -t tmpfs tmpfs $folder/udev/rules.d; fi; "
                           "done; ");
    }
    return runProgram(jwsimProgram(),
                      simulated(boards,
                                Sandbox::command(Sandbox::allowed().kind, prepare + QStringLiteral("set +e; ") + script)
                                    << arguments));
}

/// Returns shell text that applies the udev rules to a port and to its USB device, as udev does for a new board. The
/// output of udevadm is in /run/PORT.log and /run/PORT-usb.log.
inline QString applyUdevRules(const QString &port)
{
    return QStringLiteral("path=$(readlink -f /sys/class/tty/%1); PATH=$PATH:/sbin:/usr/sbin; "
                          "udevadm test --action=add \"${path%/*/*/*}\" > /run/%1-usb.log 2>&1 && "
                          "udevadm test --action=add \"$path\" > /run/%1.log 2>&1 || "
                          "{ cat /run/%1*.log; exit 99; }; ")
        .arg(port);
}

/// Runs all functions of a test. The options -sandboxed, -sandboxed-users and -as-root run only the functions with the
/// mark SANDBOXED, SANDBOXED_USERS or AS_ROOT; -unsandboxed runs only functions without a mark. If these functions
/// can't run on this machine, says so and returns the status with which ctest lists the test as not run.
inline int runSandboxTest(QObject *test, QStringList arguments)
{
    constexpr int notRun = 77;
    sandboxedTest() = test->metaObject();
    static const QMap<QString, QByteArray> marks{{QStringLiteral("-unsandboxed"), ""},
                                                 {QStringLiteral("-sandboxed"), "SANDBOXED"},
                                                 {QStringLiteral("-sandboxed-users"), "SANDBOXED_USERS"},
                                                 {QStringLiteral("-as-root"), "AS_ROOT"}};
    const QString option = arguments.value(1);
    if (!marks.contains(option))
        return QTest::qExec(test, arguments);
    arguments.removeAt(1);
    const QByteArray mark = marks.value(option);
    const QString reason = reasonToLeaveOut(mark);
    if (!reason.isEmpty()) {
        std::printf("Left out: %s %s: %s\n", qPrintable(QFileInfo(arguments.first()).fileName()), qPrintable(option),
                    qPrintable(reason));
        return notRun;
    }
    const QMetaObject *const meta = test->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        const QByteArray name = method.name();
        static const QList<QByteArray> notTests{"init", "cleanup", "initTestCase", "cleanupTestCase"};
        if (method.methodType() == QMetaMethod::Slot && !name.endsWith("_data") && !notTests.contains(name)
            && markOf(name) == mark)
            arguments.append(QString::fromLatin1(name));
    }
    return QTest::qExec(test, arguments);
}

/// Defines main() of a test with marked functions.
#define SANDBOX_TEST_MAIN(TestClass)                                                                                   \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        QCoreApplication application(argc, argv);                                                                      \
        TestClass test;                                                                                                \
        return runSandboxTest(&test, QCoreApplication::arguments());                                                   \
    }
