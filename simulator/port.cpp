#include "port.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <umockdev.h>

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

// Returns a name as udev (the device manager of Linux) writes it: with underscores for blanks. Programs that read the
// names turn the underscores into blanks again.
QByteArray udevName(const QString &text)
{
    return text.toLatin1().replace(' ', '_');
}

// Returns `text` with blanks and other special characters encoded as udev does.
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

class StringArray
{
public:
    explicit StringArray(const std::vector<QByteArray> &strings)
        : m_strings(strings)
    {
        for (QByteArray &string : m_strings)
            m_pointers.push_back(string.data());
        m_pointers.push_back(nullptr);
    }
    gchar **data() { return m_pointers.data(); }

private:
    std::vector<QByteArray> m_strings;
    std::vector<gchar *> m_pointers;
};

QByteArray addDevice(UMockdevTestbed *testbed, const char *subsystem, const char *name, const char *parent,
                     const std::vector<QByteArray> &attributes, const std::vector<QByteArray> &properties)
{
    gchar *path = umockdev_testbed_add_devicev(testbed, subsystem, name, parent, StringArray(attributes).data(),
                                               StringArray(properties).data());
    const QByteArray result(path);
    g_free(path);
    return result;
}

// Makes a link. Also makes its folder if needed, and replaces an existing link.
bool setLink(const QByteArray &link, const QByteArray &target)
{
    QDir().mkpath(QFileInfo(QFile::decodeName(link)).path());
    ::unlink(link);
    return ::symlink(target, link) == 0;
}

// Returns the path of the port's lock file, as QSerialPort chooses it: in the first of these folders that this process
// can read and write.
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

// Returns whether a running program that does not use QLockFile holds the port. Such a
// program writes only one line to the lock file: the process id, or the process id, the program's name and the user.
// QLockFile expects the program's name in a second line, and would delete a file without this line.
bool isHeldByOtherProgram(const QString &portName)
{
    QFile file(lockFileName(portName));
    if (file.exists() && !QFileInfo(file).isFile())
        return true; // not a plain file, so QSerialPort cannot lock the port; reading a FIFO would block
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
    // Uses a second lock file with the prefix "jwsim.", because the port's lock file must stay free for the program
    // that opens the port.
    std::unique_ptr<QLockFile> lock = portLock(QStringLiteral("jwsim.") + portName);
    const bool isTaken = !lock->tryLock(0) && lock->error() == QLockFile::LockFailedError;
    return isTaken ? nullptr : std::move(lock);
}

Descriptor::~Descriptor()
{
    if (m_number >= 0)
        ::close(m_number);
}

Port::Port(UMockdevTestbed *testbed, const BoardConfig &config, int index)
    : m_testbed(testbed)
    , m_config(config)
    , m_index(index)
{
    gchar *root = umockdev_testbed_get_root_dir(testbed);
    m_rootFolder = root;
    g_free(root);
}

Port::~Port()
{
    m_lock.reset();
    // If a program was killed while it had the port open, the port's lock file still exists, so it is removed here. The
    // lock file of a running process stays.
    if (QFileInfo::exists(lockFileName(m_config.port)) && !isHeldByOtherProgram(m_config.port))
        portLock(m_config.port)->removeStaleLockFile();
}

bool Port::plug(QString &error)
{
    addDevices();
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
    if (ok)
        umockdev_testbed_uevent(m_testbed, m_sysPaths.back(), "add");
    else
        unplug();
    return ok;
}

void Port::addDevices()
{
    const QByteArray port = m_config.port.toLatin1();
    // Systems sort ports by the path of the device. Each number gets two digits, so that "10" is after "02".
    const QByteArray plug = QByteArray::number(m_index + 1).rightJustified(2, '0');
    const QByteArray usbName = "1-" + plug;
    const QByteArray devNumber = QByteArray::number(m_index + 2); // number 1 is the bus itself
    const QByteArray vendor = hex(m_config.vendor);
    const QByteArray product = hex(m_config.product);
    const QByteArray manufacturer = m_config.manufacturer.toLatin1();
    const QByteArray productText = m_config.productName.toLatin1();
    const QByteArray serial = m_config.serial.toLatin1();
    const QByteArray ids =
        QByteArray::number(m_config.vendor, 16) + '/' + QByteArray::number(m_config.product, 16) + "/200";
    const QByteArray manufacturerName = udevName(m_config.manufacturer);
    const QByteArray productName = udevName(m_config.productName);
    // A real udev would make these properties from the attributes below. The testbed doesn't.
    const std::vector<QByteArray> properties = {
        "ID_BUS",          "usb",
        "ID_VENDOR",       manufacturerName,
        "ID_VENDOR_ENC",   udevEncoded(m_config.manufacturer),
        "ID_VENDOR_ID",    vendor,
        "ID_MODEL_ID",     product,
        "ID_MODEL",        productName,
        "ID_MODEL_ENC",    udevEncoded(m_config.productName),
        "ID_REVISION",     "0200",
        "ID_SERIAL",       manufacturerName + '_' + productName + '_' + udevName(m_config.serial),
        "ID_SERIAL_SHORT", serial,
        "ID_USB_DRIVER",   "cdc_acm"};

    std::vector<QByteArray> deviceProperties = properties;
    deviceProperties.insert(deviceProperties.end(),
                            {"DEVTYPE", "usb_device", "DRIVER", "usb", "PRODUCT", ids, "TYPE", "2/0/0", "BUSNUM", "001",
                             "DEVNUM", devNumber.rightJustified(3, '0')});
    // clang-format off
    const std::vector<QByteArray> attributes = {
        "idVendor",           vendor,
        "idProduct",          product,
        "bcdDevice",          "0200",
        "manufacturer",       manufacturer,
        "product",            productText,
        "serial",             serial,
        "busnum",             "1",
        "devnum",             devNumber,
        "devpath",            plug,
        "speed",              "12",
        "version",            " 2.00",
        "bDeviceClass",       "02",
        "bDeviceSubClass",    "00",
        "bDeviceProtocol",    "00",
        "bNumConfigurations", "1",
        "bNumInterfaces",     " 1"};
    // clang-format on
    // The path contains "usb1", because programs recognise a USB port by the name of the bus in its path.
    const QByteArray device = addDevice(m_testbed, "usb", "usb1/" + usbName, nullptr, attributes, deviceProperties);
    m_sysPaths = {device};
    umockdev_testbed_set_attribute_link(m_testbed, device, "driver", "../../../bus/usb/drivers/usb");
    const QByteArray interface = addDevice(
        m_testbed, "usb", usbName + ":1.0", device,
        {"bInterfaceNumber", "00", "bInterfaceClass", "02", "bInterfaceSubClass", "02", "bInterfaceProtocol", "01",
         "bAlternateSetting", " 0"},
        {"DEVTYPE", "usb_interface", "DRIVER", "cdc_acm", "PRODUCT", ids, "TYPE", "2/0/0", "INTERFACE", "2/2/1"});
    m_sysPaths.push_back(interface);
    umockdev_testbed_set_attribute_link(m_testbed, interface, "driver", "../../../../bus/usb/drivers/cdc_acm");

    std::vector<QByteArray> ttyProperties = properties;
    ttyProperties.insert(ttyProperties.end(), {"MAJOR", deviceMajor, "MINOR", QByteArray::number(m_index)});
    const QByteArray tty =
        addDevice(m_testbed, "tty", "tty/" + port, interface, {"dev", deviceNumber()}, ttyProperties);
    m_sysPaths.push_back(tty);
    umockdev_testbed_set_attribute_link(m_testbed, tty, "device", "../../../" + usbName + ":1.0");
    // DEVNAME (the path in /dev) is set only after the device was added. For a tty that is added with DEVNAME, the
    // testbed makes a pty and keeps it until the testbed ends. The testbed would then abort if the same port name or
    // pty number is added again.
    umockdev_testbed_set_property(m_testbed, tty, "DEVNAME", "/dev/" + port);
    // Makes the link from /sys/dev/char to the device. The testbed itself makes this link only for a device that is
    // added with DEVNAME. When the device is removed, the testbed removes the link.
    setLink(m_rootFolder + "/sys/dev/char/" + deviceNumber(), "../.." + tty.mid(int(qstrlen("/sys"))));
}

bool Port::openPty(QString &error)
{
    m_boardEnd = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    const int boardEnd = m_boardEnd.number();
    char hostName[64];
    if (boardEnd < 0 || ::grantpt(boardEnd) != 0 || ::unlockpt(boardEnd) != 0
        || ::ptsname_r(boardEnd, hostName, sizeof hostName) != 0 || !setNode(hostName)) {
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
    const QByteArray port = m_config.port.toLatin1();
    // The preload library of umockdev reads the link in /dev/.node. Because of this link, stat() reports that the port
    // is a character device.
    return setLink(m_rootFolder + "/dev/" + port, target)
        && setLink(m_rootFolder + "/dev/.node/" + port, deviceNumber());
}

bool Port::deny(QString &error)
{
    // The port becomes a link to a kernel setting that nobody can open for writing. File modes would not stop the user
    // root.
    const QByteArray refusing = "/proc/sys/kernel/ostype";
    const Descriptor attempt(::open(refusing, O_RDWR | O_CLOEXEC));
    if (attempt.number() < 0 && errno == EACCES && setNode(refusing))
        return true;
    error = QStringLiteral("this system cannot simulate a denied port; leave out open=denied");
    return false;
}

bool Port::hold(QString &error)
{
    m_lock = portLock(m_config.port);
    if (!isHeldByOtherProgram(m_config.port) && m_lock->tryLock() && ::ioctl(m_hostEnd.number(), TIOCEXCL) == 0)
        return true;
    error = QStringLiteral("cannot hold the port: another program has the lock file %1; choose another port name")
                .arg(lockFileName(m_config.port));
    return false;
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
    ::unlink(m_rootFolder + "/dev/" + m_config.port.toLatin1());
    if (!m_sysPaths.empty())
        umockdev_testbed_uevent(m_testbed, m_sysPaths.back(), "remove");
    for (; !m_sysPaths.empty(); m_sysPaths.pop_back())
        umockdev_testbed_remove_device(m_testbed, m_sysPaths.back());
}

} // namespace JwSimulator
