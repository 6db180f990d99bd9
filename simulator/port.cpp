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
constexpr int longestLockFile = 4096; // bytes; any user may write a longer one

// udev stores blanks in names as underscores; programs that read the names turn them back.
QByteArray udevName(const QString &text)
{
    return text.toLatin1().replace(' ', '_');
}

// As udev encodes blanks and other special characters.
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

// Also makes the folder, and replaces an existing link.
bool setLink(const QByteArray &link, const QByteArray &target)
{
    QDir().mkpath(QFileInfo(QFile::decodeName(link)).path());
    ::unlink(link);
    return ::symlink(target, link) == 0;
}

// QSerialPort uses the first of these folders that it can read and write.
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
    // A program may hold a port for days: a lock is stale only when its holder is dead, not by age.
    lock->setStaleLockTime(0);
    return lock;
}

// Other serial programs write one line, "%10d" or "%10d name user". QLockFile expects a second line with the program's
// name; without that line it takes the lock for stale and deletes it.
bool isHeldByOtherProgram(const QString &portName)
{
    QFile file(lockFileName(portName));
    if (file.exists() && !QFileInfo(file).isFile())
        return true; // QSerialPort cannot lock it, and reading a FIFO would wait for a writer
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
    const std::unique_ptr<QLockFile> lock = portLock(portName); // released again at the end of this function
    return !lock->tryLock(0) && lock->error() == QLockFile::LockFailedError;
}

std::unique_ptr<QLockFile> reserveName(const QString &portName)
{
    // Not the lock file of the port: that belongs to the program that opens the port.
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
    // A host that was killed with the port open leaves its lock file. The lock file of a living process stays.
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
    // Systems sort ports by the path of the device; two digits keep them in order.
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
    // A real udev makes these from the attributes below.
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
    // Programs recognise a USB port by the name of the bus in its path.
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
    // Set afterwards: for a tty that is added with a node, the testbed makes its own pty and keeps it until its end. It
    // aborts when the same port name or pty number comes again.
    umockdev_testbed_set_property(m_testbed, tty, "DEVNAME", "/dev/" + port);
    // The testbed makes this link only for a device that is added with a node. It removes the link with the device.
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
    // If nobody had the host's end open, the board's end would report a hang-up; so keep one open here. An open() by
    // name would use one of the few descriptors that umockdev can simulate.
    m_hostEnd = Descriptor(::ioctl(boardEnd, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings;
    if (m_hostEnd.number() < 0 || ::tcgetattr(m_hostEnd.number(), &settings) != 0) {
        error = systemError(QStringLiteral("cannot open the host's end of the port"));
        return false;
    }
    // A new pty echoes and translates line ends; a serial line does neither.
    ::cfmakeraw(&settings);
    ::tcsetattr(m_hostEnd.number(), TCSANOW, &settings);
    // The group and mode of a real port. Not every user may set them, and the port works without them.
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
    // The second link makes stat() report a character device with this number.
    return setLink(m_rootFolder + "/dev/" + port, target)
        && setLink(m_rootFolder + "/dev/.node/" + port, deviceNumber());
}

bool Port::deny(QString &error)
{
    // Nobody can open this kernel setting for writing, not even root, whom file modes do not stop.
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
