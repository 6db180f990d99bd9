#include "secretfile.h"

#include <QFile>

namespace JwFleet {

std::optional<QByteArray> readSecretFile(const QString &name, QString *error)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("can't read %1: %2").arg(name, file.errorString());
        return std::nullopt;
    }
    if ((file.permissions() & (QFile::ReadOther | QFile::WriteOther)) != 0) {
        *error =
            QStringLiteral("%1 holds a secret, and every user can read or change it: run \"chmod o-rwx %1\"").arg(name);
        return std::nullopt;
    }
    return file.readAll();
}

} // namespace JwFleet
