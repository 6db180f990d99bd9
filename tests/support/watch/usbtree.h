#pragma once

#include <simulator/eventsender.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

/// Changes what the simulated system says about a port. The changes last until the cable is pulled.
namespace UsbTree {

/// Returns the folder of the port in the simulated /sys.
inline QString folderOf(const QString &portName)
{
    const QString link = QFile::decodeName(qgetenv("UMOCKDEV_DIR")) + QStringLiteral("/sys/class/tty/") + portName;
    const QString folder = QFileInfo(link).canonicalFilePath();
    if (folder.isEmpty())
        qFatal("no port %s in %s", qUtf8Printable(portName), qUtf8Printable(link));
    return folder;
}

/// The port and the devices above it that can have udev properties. The value is the number of folders from the port up
/// to the device.
enum Level { Port = 0, Interface = 2, Device = 3 };

/// Adds a udev property, for example "JWDEVICE_IGNORE=1", to the port or to the device above it that `level` names.
inline void addProperty(const QString &portName, Level level, const QByteArray &property)
{
    QDir folder(folderOf(portName));
    for (int i = 0; i < level; ++i)
        folder.cdUp();
    QFile file(folder.filePath(QStringLiteral("uevent")));
    if (!file.open(QIODevice::Append) || file.write(property + '\n') < 0)
        qFatal("no property for %s: %s", qUtf8Printable(portName), qUtf8Printable(file.errorString()));
}

/// Sends the kernel event "change" of the port, with all its properties.
inline void announceChange(const QString &portName)
{
    const QByteArray root = qgetenv("UMOCKDEV_DIR");
    const QString devices = QFileInfo(QFile::decodeName(root) + QStringLiteral("/sys/devices")).canonicalFilePath();
    const QString folder = folderOf(portName);
    QFile file(folder + QStringLiteral("/uevent"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no properties of %s: %s", qUtf8Printable(portName), qUtf8Printable(file.errorString()));
    JwSimulator::EventSender(root).send("change", QFile::encodeName(folder.mid(devices.size() + 1)), "tty", "",
                                        file.readAll().replace('\n', '\0'));
}

/// Moves the port to the USB device of another port. There, the port is on the interface `interface`, for example
/// "1.2".
inline void moveTo(const QString &portName, const QString &otherPort, const QString &interface)
{
    const QString from = folderOf(portName);
    QDir device(folderOf(otherPort)); // .../1-01/1-01:1.0/tty/NAME
    device.cdUp();
    device.cdUp();
    const QString otherInterface = device.path();
    device.cdUp();
    const QString to = device.filePath(device.dirName() + QLatin1Char(':') + interface);
    const QString port = to + QStringLiteral("/tty/") + portName;
    bool ok = QDir().mkpath(port);
    // Links are relative, because programs see the simulated /sys as /sys, not under the path that is used here.
    const auto link = [](const QString &target, const QString &name) {
        QFile::remove(name);
        return QFile::link(QFileInfo(name).dir().relativeFilePath(target), name);
    };
    const auto copy = [&](const QString &source, const QString &target) {
        const QStringList names = QDir(source).entryList(QDir::Files | QDir::NoSymLinks);
        for (const QString &name : names)
            ok = QFile::copy(source + QLatin1Char('/') + name, target + QLatin1Char('/') + name) && ok;
        const QString subsystem = QStringLiteral("/subsystem");
        ok = link(QFileInfo(source + subsystem).canonicalFilePath(), target + subsystem) && ok;
    };
    copy(otherInterface, to);
    copy(from, port);
    ok = link(port, QFile::decodeName(qgetenv("UMOCKDEV_DIR")) + QStringLiteral("/sys/class/tty/") + portName) && ok;
    if (!ok)
        qFatal("cannot move %s to %s", qUtf8Printable(portName), qUtf8Printable(to));
}

} // namespace UsbTree
