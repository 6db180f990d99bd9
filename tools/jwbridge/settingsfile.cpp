#include "settingsfile.h"

#include <QFile>
#include <QRegularExpression>

namespace JwBridge {

std::optional<QStringList> readSettingsFile(const QString &name, QString *error)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("can't read %1: %2").arg(name, file.errorString());
        return std::nullopt;
    }
    static const QRegularExpression setting(QStringLiteral("^([a-z]+(?:-[a-z]+)*)\\s*=\\s*(.*)$"));
    QStringList options;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines.at(i).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QRegularExpressionMatch match = setting.match(line);
        if (!match.hasMatch()) {
            *error =
                QStringLiteral("%1, line %2: \"%3\" is not allowed: write NAME = VALUE").arg(name).arg(i + 1).arg(line);
            return std::nullopt;
        }
        const QString value = match.captured(2);
        if (value == QLatin1String("true"))
            options.append(QStringLiteral("--%1").arg(match.captured(1)));
        else if (value != QLatin1String("false"))
            options.append(QStringLiteral("--%1=%2").arg(match.captured(1), value));
    }
    return options;
}

} // namespace JwBridge
