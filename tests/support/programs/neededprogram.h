#pragma once

#include <QStandardPaths>
#include <QString>
#include <QTest>

/// Empty, or what to install: the program is looked for in PATH and where a user's PATH may not lead.
inline QString missingProgram(const char *program, const char *package)
{
    const QString name = QLatin1String(program);
    if (!QStandardPaths::findExecutable(name).isEmpty()
        || !QStandardPaths::findExecutable(name, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")}).isEmpty())
        return {};
    return QStringLiteral("%1 is missing: install the package %2 (scripts/test does)")
        .arg(name, QLatin1String(package));
}

/// Ends a test at once if it lacks a program that it runs.
#define NEEDS_PROGRAM(program, package)                                                                                \
    QVERIFY2(missingProgram(program, package).isEmpty(), qPrintable(missingProgram(program, package)))
