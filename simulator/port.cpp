#include "port.h"

#include <simulator/devicetree.h>

#include <QFile>
#include <QFileInfo>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace JwSimulator {

namespace {

const char *const deviceMajor = "166";
constexpr int longestLockFile = 4096; // bytes to read; a limit, because any user may write a very long file

// Writes a name as udev does, with underscores for blanks. Programs that read the names replace the underscores.
QByteArray udevName(const QString &text)
{
    return text.toLatin1().replace(' ', '_');
}

// Encodes blanks and other special characters as udev does.
QByteArray udevEncoded(const QString &text)
{
    QByteArray encoded;
    for (const char byte : text.toLatin1()) {
        if (std::isalnum(static_cast<uchar>(byte)) || std::strchr("#+-.:=@_", byte))
            encoded += byte;
        else
            encoded += "\\x" + QByteArray(1, byte).toHex();
    }
    return encoded;
}

QByteArray hex(quint16 id)
{
    return QByteArray::number(id, 16).rightJustified(4, '0');
}

QString systemError(const QString &what)
{
    return QStringLiteral("%1: %2").arg(what, qt_error_string(errno));
}

// Returns the path that QSerialPort uses: in the first of these folders that it can read and write.
QString lockFileName(const QString &portName)
{
    for (const char *folder : {"/var/lock", "/etc/locks", "/var/spool/locks", "/var/spool/uucp", "/tmp"}) {
        const QFileInfo info{QString::fromLatin1(folder)};
        if (info.isReadable() && info.isWritable())
            return QStringLiteral("%1/LCK..%2").arg(info.filePath(), portName);
    }
    return {};
}

std::unique_ptr<QLockFile> portLock(const QString &portName)
{
    auto lock = std::make_unique<QLockFile>(lockFileName(portName));
    // With time 0, a lock never becomes stale by its age, because a program may use a port for days. A lock is stale
    // only if its process has ended.
    lock->setStaleLockTime(0);
    return lock;
}

// Returns whether a running program that does not use QLockFile holds the port. Such a program writes one line, "%10d"
// or "%10d name user". QLockFile expects a second line with the program's name, and would delete the file without it.
bool isHeldByOtherProgram(const QString &portName)
{
    QFile file(lockFileName(portName));
    if (file.exists() && !QFileInfo(file).isFile())
        return true; // QSerialPort cannot lock this; it is not read, because a read of a FIFO would wait for a writer
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = file.read(longestLockFile).split('\n');
    const QByteArray holder = lines.first().simplified().split(' ').first();
    if (!lines.value(1).trimmed().isEmpty())
        return false;
    bool isNumber = false;
    const pid_t process = holder.toInt(&isNumber);
    return isNumber && process > 0 && (::kill(process, 0) == 0 || errno != ESRCH);
}

} // namespace

bool isLocked(const QString &portName)
{
    if (isHeldByOtherProgram(portName))
        return true;
    const std::unique_ptr<QLockFile> lock = portLock(portName); // the destructor releases the lock
    return !lock->tryLock(0) && lock->error() == QLockFile::LockFailedError;
}

std::unique_ptr<QLockFile> reserveName(const QString &portName)
{
    // Uses its own lock file with the prefix "jwsim.". The port's lock file is for the program that opens the port.
    std::unique_ptr<QLockFile> lock = portLock(QStringLiteral("jwsim.") + portName);
    const bool isTaken = !lock->tryLock(0) && lock->error() == QLockFile::LockFailedError;
    return isTaken ? nullptr : std::move(lock);
}

Descriptor::~Descriptor()
{
    if (m_number >= 0)
        ::close(m_number);
}

Port::Port(DeviceTree &tree, const BoardConfig &config, int index)
    : m_tree(tree)
    , m_config(config)
    , m_index(index)
    , m_name(config.port)
{
}

Port::~Port()
{
    m_lock.reset();
    // If a host was killed while the port was open, its lock file still exists, so remove it. The lock file of a
    // running process is not removed.
    for (const QString &name : {m_config.port, m_config.replugPort}) {
        if (!name.isEmpty() && QFileInfo::exists(lockFileName(name)) && !isHeldByOtherProgram(name))
            portLock(name)->removeStaleLockFile();
    }
}

bool Port::plug(const QString &name, QString &error)
{
    m_name = name;
    m_usbNumber = m_tree.takeUsbNumber();
    bool ok = false;
    switch (m_config.open) {
    case BoardConfig::Open::Ok:
        ok = openPty(error);
        break;
    case BoardConfig::Open::Busy:
        ok = openPty(error) && hold(error);
        break;
    case BoardConfig::Open::Denied:
        ok = deny(error);
        break;
    }
    if (ok && m_config.latePermission > 0)
        ok = deny(error);
    // The devices come after the node, because a program that sees the device may open the port at once.
    if (ok && addDevices(error)) {
        for (const QByteArray &device : qAsConst(m_devices))
            m_tree.announce(device, "add");
        return true;
    }
    unplug();
    return false;
}

bool Port::addDevices(QString &error)
{
    // Systems sort ports by the path of the device. Each number gets two digits, so that "10" is after "02".
    const QByteArray plug = QByteArray::number(m_index + 1).rightJustified(2, '0');
    const QByteArray usbName = "1-" + plug;
    // The path contains "usb1", because programs recognise a USB port by the name of the bus in its path.
    const QByteArray usbPath = "usb1/" + usbName;
    const QByteArray interfacePath = usbPath + '/' + usbName + ":1.0";
    const QByteArray usbNumber = QByteArray::number(m_usbNumber);
    const QByteArray vendor = hex(m_config.vendor);
    const QByteArray product = hex(m_config.product);
    const QByteArray serial = m_config.serial.toLatin1();
    const QByteArray ids =
        QByteArray::number(m_config.vendor, 16) + '/' + QByteArray::number(m_config.product, 16) + "/200";
    const QByteArray manufacturerName = udevName(m_config.manufacturer);
    const QByteArray productName = udevName(m_config.productName);
    // A real udev would make these properties from the attributes below. The simulated one doesn't.
    Device::Pairs properties = {
        {"ID_BUS", "usb"},
        {"ID_VENDOR", manufacturerName},
        {"ID_VENDOR_ENC", udevEncoded(m_config.manufacturer)},
        {"ID_VENDOR_ID", vendor},
        {"ID_MODEL_ID", product},
        {"ID_MODEL", productName},
        {"ID_MODEL_ENC", udevEncoded(m_config.productName)},
        {"ID_REVISION", "0200"},
        {"ID_SERIAL", manufacturerName + '_' + productName + (serial.isEmpty() ? "" : '_' + udevName(m_config.serial))},
        {"ID_USB_DRIVER", "cdc_acm"},
    };
    Device::Pairs attributes = {
        {"idVendor", vendor},
        {"idProduct", product},
        {"bcdDevice", "0200"},
        {"manufacturer", m_config.manufacturer.toLatin1()},
        {"product", m_config.productName.toLatin1()},
        {"busnum", "1"},
        {"devnum", usbNumber},
        {"devpath", plug},
        {"speed", "12"},
        {"version", " 2.00"},
        {"bDeviceClass", "02"},
        {"bDeviceSubClass", "00"},
        {"bDeviceProtocol", "00"},
        {"bNumConfigurations", "1"},
        {"bNumInterfaces", " 1"},
    };
    if (!serial.isEmpty()) {
        properties.push_back({"ID_SERIAL_SHORT", serial});
        attributes.push_back({"serial", serial});
    }

    Device usb{usbPath, "bus/usb", attributes, properties, {{"driver", "../../../bus/usb/drivers/usb"}}};
    usb.properties.insert(usb.properties.end(),
                          {{"DEVTYPE", "usb_device"},
                           {"DRIVER", "usb"},
                           {"PRODUCT", ids},
                           {"TYPE", "2/0/0"},
                           {"BUSNUM", "001"},
                           {"DEVNUM", usbNumber.rightJustified(3, '0')}});
    const Device interface {
        interfacePath, "bus/usb",
            {{"bInterfaceNumber", "00"},
             {"bInterfaceClass", "02"},
             {"bInterfaceSubClass", "02"},
             {"bInterfaceProtocol", "01"},
             {"bAlternateSetting", " 0"}},
            {{"DEVTYPE", "usb_interface"},
             {"DRIVER", "cdc_acm"},
             {"PRODUCT", ids},
             {"TYPE", "2/0/0"},
             {"INTERFACE", "2/2/1"}},
        {
            {
                "driver", "../../../../bus/usb/drivers/cdc_acm"
            }
        }
    };
    Device tty{interfacePath + "/tty/" + m_name.toLatin1(),
               "class/tty",
               {{"dev", deviceNumber()}},
               properties,
               {{"device", "../../../" + usbName + ":1.0"}}};
    tty.properties.insert(tty.properties.end(),
                          {{"ID_USB_INTERFACE_NUM", "00"},
                           {"MAJOR", deviceMajor},
                           {"MINOR", QByteArray::number(m_index)},
                           {"DEVNAME", m_name.toLatin1()}});
    for (const Device &device : {usb, interface, tty}) {
        m_devices.append(device.path);
        if (!m_tree.add(device, error))
            return false;
    }
    return true;
}

bool Port::openPty(QString &error)
{
    m_boardEnd = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    const int boardEnd = m_boardEnd.number();
    char hostName[64];
    if (boardEnd < 0 || ::grantpt(boardEnd) != 0 || ::unlockpt(boardEnd) != 0
        || ::ptsname_r(boardEnd, hostName, sizeof hostName) != 0 || !setNode(m_hostName = hostName)) {
        error = systemError(QStringLiteral("cannot make a pty"));
        return false;
    }
    // The host's end is kept open here, because otherwise the board's end would report a hang-up until a program opens
    // the port. The ioctl is used because open() would need one of the few descriptors that umockdev can simulate.
    m_hostEnd = Descriptor(::ioctl(boardEnd, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings;
    if (m_hostEnd.number() < 0 || ::tcgetattr(m_hostEnd.number(), &settings) != 0) {
        error = systemError(QStringLiteral("cannot open the host's end of the port"));
        return false;
    }
    // Raw mode is needed, because a new pty echoes and translates line ends, and a serial line does not.
    ::cfmakeraw(&settings);
    ::tcsetattr(m_hostEnd.number(), TCSANOW, &settings);
    // Sets the group and mode of a real port. Errors are ignored, because not every user may set them and the port also
    // works without them.
    if (const group *dialout = ::getgrnam("dialout")) {
        if (::fchown(m_hostEnd.number(), static_cast<uid_t>(-1), dialout->gr_gid) == 0)
            ::fchmod(m_hostEnd.number(), 0660);
    }
    return true;
}

QByteArray Port::deviceNumber() const
{
    return QByteArray(deviceMajor) + ':' + QByteArray::number(m_index);
}

bool Port::setNode(const QByteArray &target)
{
    const QByteArray folder = m_tree.rootFolder() + "/dev/";
    // The preload library of umockdev reads the link in /dev/.node. With it, stat() reports a character device.
    return setLink(folder + ".node/" + m_name.toLatin1(), deviceNumber())
        && setLink(folder + m_name.toLatin1(), target);
}

bool Port::deny(QString &error)
{
    // The port becomes a link to a kernel setting that nobody can open for writing. File modes would not stop root.
    const QByteArray refusing = "/proc/sys/kernel/ostype";
    const Descriptor attempt(::open(refusing, O_RDWR | O_CLOEXEC));
    if (attempt.number() < 0 && errno == EACCES && setNode(refusing))
        return true;
    error = QStringLiteral("this system cannot simulate a denied port; leave out open=denied and late-permission");
    return false;
}

bool Port::hold(QString &error)
{
    m_lock = portLock(m_name);
    if (!isHeldByOtherProgram(m_name) && m_lock->tryLock() && ::ioctl(m_hostEnd.number(), TIOCEXCL) == 0)
        return true;
    error = QStringLiteral("cannot hold the port: another program has the lock file %1; choose another port name")
                .arg(lockFileName(m_name));
    return false;
}

void Port::permit()
{
    setNode(m_hostName);
    m_tree.announce(m_devices.last(), "change");
}

int Port::unread() const
{
    int count = 0;
    return ::ioctl(m_hostEnd.number(), FIONREAD, &count) == 0 ? count : 0;
}

void Port::unplug()
{
    m_boardEnd = Descriptor();
    m_hostEnd = Descriptor();
    m_lock.reset();
    ::unlink(m_tree.rootFolder() + "/dev/" + m_name.toLatin1());
    while (!m_devices.isEmpty())
        m_tree.remove(m_devices.takeLast());
    m_tree.freeUsbNumber(m_usbNumber);
}

} // namespace JwSimulator
