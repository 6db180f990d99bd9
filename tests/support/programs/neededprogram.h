#pragma once

#include <QStandardPaths>
#include <QString>
#include <QTest>

/// Empty if the program is in PATH, /usr/sbin or /sbin. Otherwise says which package to install.
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
