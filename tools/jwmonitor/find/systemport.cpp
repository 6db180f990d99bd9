#include "systemport.h"

#include <QFileInfo>

namespace JwMonitor {

namespace {

int digitsAtEnd(const QString &name)
{
    int digits = 0;
    while (digits < name.size() && name.at(name.size() - 1 - digits).isDigit())
        ++digits;
    return digits;
}

} // namespace

QString portName(const QString &name)
{
    const QString folder = QStringLiteral("/dev/");
    if (!name.startsWith(folder))
        return name;
    const QFileInfo file(name);
    return file.isSymLink() ? QFileInfo(file.symLinkTarget()).fileName() : name.mid(folder.size());
}

bool isBefore(const QString &a, const QString &b)
{
    const QString letters = a.chopped(digitsAtEnd(a));
    if (letters == b.chopped(digitsAtEnd(b)) && a.size() != b.size())
        return a.size() < b.size();
    return a < b;
}

} // namespace JwMonitor
