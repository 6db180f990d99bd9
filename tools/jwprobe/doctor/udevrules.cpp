#include "udevrules.h"

#include "udevrulestext.h"
#include <jwprobe/search/portidentity.h>
#include <jwprobe/search/portlist.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>

namespace JwProbe {

namespace {

// udev reads rules files in the order of their names. Our rules set the tag "uaccess", and the system's file
// 73-seat-late.rules reads this tag. So the number at the start of our file names must be below 73.
const QLatin1String rulesFile("/etc/udev/rules.d/60-jwdevice.rules");
const QLatin1String otherRulesFile("/etc/udev/rules.d/60-jwdevice-%1.rules");

// Returns the command with which the user started this program, quoted for the shell. The name "jwprobe" alone may not
// work, because the program may be outside of PATH.
QString thisProgram()
{
    QString word = QCoreApplication::arguments().value(0);
    static const QRegularExpression special(QStringLiteral("[^\\w./+-]"));
    if (!word.contains(special))
        return word;
    word.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + word + QLatin1Char('\'');
}

QStringList rulesOf(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines =
        QString::fromUtf8(file.readAll()).replace(QLatin1String("\\\n"), QString()).split(QLatin1Char('\n'));
    QStringList rules;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(rules),
                 [](const QString &line) { return !line.trimmed().startsWith(QLatin1Char('#')); });
    return rules;
}

bool isFor(const QString &rule, const PortIdentity &port)
{
    const auto names = [&rule](const QString &text) {
        return !text.isEmpty() && rule.contains(QStringLiteral("==\"%1\"").arg(text), Qt::CaseInsensitive);
    };
    return names(idText(port.vendorId)) || names(port.manufacturer);
}

QString findRule(const PortIdentity &port, const QRegularExpression &effect)
{
    static const char *const folders[] = {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
                                          "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};
    QStringList seen; // udev ignores a file if an earlier folder has a file with the same name
    for (const char *folder : folders) {
        const QDir dir{QString::fromLatin1(folder)};
        const QStringList names = dir.entryList({QStringLiteral("*.rules")}, QDir::Files | QDir::System);
        for (const QString &name : names) {
            if (seen.contains(name))
                continue;
            seen.append(name);
            const QString path = dir.filePath(name);
            const QStringList rules = rulesOf(path);
            if (std::any_of(rules.begin(), rules.end(),
                            [&](const QString &rule) { return rule.contains(effect) && isFor(rule, port); }))
                return path;
        }
    }
    return {};
}

} // namespace

QString udevRules()
{
    return QString::fromUtf8(udevRulesText);
}

QString findAccessRule(const PortIdentity &port)
{
    static const QRegularExpression access(QStringLiteral("\"uaccess\"|MODE\\s*:?=\\s*\"0?666\""));
    return findRule(port, access);
}

QString findModemManagerRule(const PortIdentity &port)
{
    static const QRegularExpression ignore(QStringLiteral("ENV\\{ID_MM_(DEVICE|PORT)_IGNORE\\}\\s*:?=\\s*\"1\""));
    return findRule(port, ignore);
}

QStringList installRulesCommands(const PortIdentity &port)
{
    if (port.isCandidate) {
        return QStringList{QStringLiteral("    %1 --udev-rules | sudo tee %2").arg(thisProgram(), rulesFile)}
        + applyRulesCommands();
    }
    const QString id = idText(port.vendorId);
    return QStringList{QStringLiteral("    echo 'SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"%1\", TAG+=\"uaccess\", "
                                      "ENV{ID_MM_PORT_IGNORE}=\"1\"' | sudo tee %2")
                           .arg(id, QString(otherRulesFile).arg(id))}
    + applyRulesCommands();
}

QStringList applyRulesCommands()
{
    return {QStringLiteral("    sudo udevadm control --reload && sudo udevadm trigger")};
}

} // namespace JwProbe
