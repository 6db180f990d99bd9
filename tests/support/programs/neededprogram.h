#pragma once

#include <QStandardPaths>
#include <QString>
#include <QTest>

/// Looks for the program in PATH, /usr/sbin and /sbin. Returns its file name, or an empty text if it is missing.
inline QString programFile(const char *program)
{
    const QString name = QLatin1String(program);
    const QString file = QStandardPaths::findExecutable(name);
    return file.isEmpty() ? QStandardPaths::findExecutable(name, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
                          : file;
}

/// If the program is missing, returns a text that names the package to install. Otherwise returns an empty text.
inline QString missingProgram(const char *program, const char *package)
{
    if (!programFile(program).isEmpty())
        return {};
    return QStringLiteral("%1 is missing: install the package %2 (scripts/test does)")
        .arg(QLatin1String(program), QLatin1String(package));
}

/// Fails a test at once if a program that it runs is missing.
#define NEEDS_PROGRAM(program, package)                                                                                \
    QVERIFY2(missingProgram(program, package).isEmpty(), qPrintable(missingProgram(program, package)))
