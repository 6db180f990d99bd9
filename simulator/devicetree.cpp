#include "devicetree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <umockdev.h>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace JwSimulator {

namespace {

constexpr std::size_t usbNumbers = 128; // a USB bus has the device numbers 1 to 127

bool writeFile(const QByteArray &name, const QByteArray &text)
{
    QFile file(QFile::decodeName(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

QByteArray upwards(int folders)
{
    return QByteArray("../").repeated(folders);
}

} // namespace

DeviceTree::DeviceTree(UMockdevTestbed *testbed)
    : m_testbed(testbed)
    , m_usbNumbers(usbNumbers)
    , m_lastUsbNumber(1) // number 1 is the bus itself
{
    gchar *root = umockdev_testbed_get_root_dir(testbed);
    m_root = root;
    g_free(root);
    // Without this folder, programs would see the machine's own /dev until the first device is added.
    QDir(QFile::decodeName(m_root)).mkdir(QStringLiteral("dev"));
}

bool DeviceTree::add(const Device &device, QString &error)
{
    const QByteArray folder = m_root + "/sys/devices/" + device.path;
    bool ok = QDir().mkpath(QFile::decodeName(folder));
    QByteArray properties;
    for (const auto &[name, value] : device.properties)
        properties += name + '=' + value + '\n';
    ok = ok && writeFile(folder + "/uevent", properties);
    QByteArrayList listings = {device.subsystem + (device.subsystem.startsWith("bus/") ? "/devices/" : "/")
                               + device.path.mid(device.path.lastIndexOf('/') + 1)};
    for (const auto &[name, text] : device.attributes) {
        ok = ok && writeFile(folder + '/' + name, text);
        if (name == "dev")
            listings.append("dev/char/" + text);
    }
    const int depth = device.path.count('/') + 2; // from the device's folder up to /sys
    ok = ok && setLink(folder + "/subsystem", upwards(depth) + device.subsystem);
    for (const auto &[name, target] : device.links)
        ok = ok && setLink(folder + '/' + name, target);
    // A program that lists devices finds the device by these links, so they come last.
    for (const QByteArray &listing : listings)
        ok = ok && setLink(m_root + "/sys/" + listing, upwards(listing.count('/')) + "devices/" + device.path);
    m_listings.insert(device.path, listings);
    if (!ok)
        error = QStringLiteral("cannot write the simulated device: %1").arg(qt_error_string(errno));
    return ok;
}

void DeviceTree::announce(const QByteArray &path, const char *action)
{
    umockdev_testbed_uevent(m_testbed, "/sys/devices/" + path, action);
}

void DeviceTree::remove(const QByteArray &path)
{
    for (const QByteArray &listing : m_listings.take(path))
        ::unlink(m_root + "/sys/" + listing);
    announce(path, "remove"); // umockdev reads the properties from the device's folder, so the folder goes later
    QDir(QFile::decodeName(m_root + "/sys/devices/" + path)).removeRecursively();
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
