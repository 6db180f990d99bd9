#pragma once

#include <QStandardPaths>
#include <QString>
#include <QTest>

/// Looks for the program in PATH, /usr/sbin and /sbin. If it is missing, returns a text that names the package to
/// install. Otherwise returns an empty text.
inline QString missingProgram(const char *program, const char *package)
{
    const QString name = QLatin1String(program);
    if (!QStandardPaths::findExecutable(name).isEmpty()
        || !QStandardPaths::findExecutable(name, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")}).isEmpty())
        return {};
    return QStringLiteral("%1 is missing: install the package %2 (scripts/test does)")
        .arg(name, QLatin1String(package));
}

/// Fails a test at once if a program that it runs is missing.
#define NEEDS_PROGRAM(program, package)                                                                                \
    QVERIFY2(missingProgram(program, package).isEmpty(), qPrintable(missingProgram(program, package)))
