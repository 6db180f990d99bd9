#include "devicetree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace JwSimulator {

namespace {

constexpr std::size_t usbNumbers = 128; // a USB bus has the device numbers 1 to 127; number 0 is never used

bool writeFile(const QByteArray &name, const QByteArray &text)
{
    QFile file(QFile::decodeName(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

QByteArray upwards(QByteArray::size_type folders)
{
    return QByteArray("../").repeated(folders);
}

} // namespace

DeviceTree::DeviceTree(const QByteArray &rootFolder)
    : m_root(rootFolder)
    , m_events(rootFolder)
    , m_usbNumbers(usbNumbers)
    , m_lastUsbNumber(1) // number 1 is the bus itself
{
    // Without this folder, programs would see the machine's own /dev until the first device is added.
    QDir(QFile::decodeName(m_root)).mkdir(QStringLiteral("dev"));
}

bool DeviceTree::add(const Device &device, QString &error)
{
    const QByteArray folder = m_root + "/sys/devices/" + device.path;
    bool ok = QDir().mkpath(QFile::decodeName(folder));
    const QByteArray name = device.path.mid(device.path.lastIndexOf('/') + 1);
    const bool isOnBus = device.subsystem.startsWith("bus/");
    Entry entry;
    entry.listings.append(device.subsystem + (isOnBus ? "/devices/" : "/") + name);
    entry.subsystem = device.subsystem.mid(device.subsystem.lastIndexOf('/') + 1);
    for (const auto &[key, value] : device.properties) {
        entry.properties += key + '=' + value + '\0';
        if (key == "DEVTYPE")
            entry.type = value;
    }
    ok = ok && writeFile(folder + "/uevent", QByteArray(entry.properties).replace('\0', '\n'));
    for (const auto &[file, text] : device.attributes) {
        ok = ok && writeFile(folder + '/' + file, text);
        if (file == "dev")
            entry.listings.append("dev/char/" + text);
    }
    ok = ok && setLink(folder + "/subsystem", toSys(device.path) + device.subsystem);
    for (const auto &[link, target] : device.links)
        ok = ok && setLink(folder + '/' + link, target);
    m_entries.insert(device.path, entry);
    if (!ok)
        error = QStringLiteral("cannot write the simulated device: %1").arg(qt_error_string(errno));
    return ok;
}

void DeviceTree::show(const QByteArray &path)
{
    const QByteArrayList listings = m_entries.value(path).listings;
    for (const QByteArray &listing : listings)
        setLink(m_root + "/sys/" + listing, upwards(listing.count('/')) + "devices/" + path);
    announce(path, "add");
}

void DeviceTree::announce(const QByteArray &path, const char *action)
{
    const Entry entry = m_entries.value(path);
    m_events.send(action, path, entry.subsystem, entry.type, entry.properties);
}

void DeviceTree::remove(const QByteArray &path)
{
    const QByteArrayList listings = m_entries.value(path).listings;
    for (const QByteArray &listing : listings)
        ::unlink(m_root + "/sys/" + listing);
    QDir(QFile::decodeName(m_root + "/sys/devices/" + path)).removeRecursively();
    announce(path, "remove");
    m_entries.remove(path);
}

int DeviceTree::takeUsbNumber()
{
    do {
        m_lastUsbNumber = m_lastUsbNumber + 1 < usbNumbers ? m_lastUsbNumber + 1 : 2;
    } while (m_usbNumbers[m_lastUsbNumber]);
    m_usbNumbers[m_lastUsbNumber] = true;
    return static_cast<int>(m_lastUsbNumber);
}

void DeviceTree::freeUsbNumber(int number)
{
    m_usbNumbers[static_cast<std::size_t>(number)] = false;
}

QByteArray toSys(const QByteArray &path)
{
    return upwards(path.count('/') + 2);
}

bool setLink(const QByteArray &link, const QByteArray &target)
{
    const QFileInfo info(QFile::decodeName(link));
    QDir().mkpath(info.path());
    if (::symlink(target, link) == 0)
        return true;
    // The hidden name keeps programs that list the folder from seeing the temporary link.
    const QByteArray temporary = QFile::encodeName(info.path() + QLatin1String("/.") + info.fileName());
    return errno == EEXIST && ::symlink(target, temporary) == 0 && std::rename(temporary, link) == 0;
}

} // namespace JwSimulator
