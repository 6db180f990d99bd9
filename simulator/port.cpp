#include "port.h"

#include <simulator/devicetree.h>
#include <simulator/usbdevice.h>

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <utility>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace JwSimulator {

namespace {

const char *const deviceMajor = "166";
constexpr int longestLockFile = 4096; // bytes; any user may write a very long file, which is no lock file

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

// Returns whether a running program that does not use QLockFile holds the port. Such a
// program writes only one line to the lock file: the process id, or the process id, the program's name and the user.
// QLockFile expects the program's name in a second line, and would delete a file without this line.
bool isHeldByOtherProgram(const QString &portName)
{
    // If something is not a plain file, QSerialPort cannot lock the port, and reading a FIFO would block. QLockFile
    // would read a long file whole. Before QLockFile removes a lock file that was left behind, it creates a second one
    // with this ending.
    for (QString path = lockFileName(portName); QFileInfo::exists(path); path += QLatin1String(".rmlock")) {
        const QFileInfo info(path);
        if (!info.isFile() || info.size() > longestLockFile)
            return true;
    }
    QFile file(lockFileName(portName));
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
    const QString name = QStringLiteral("jwsim.") + portName;
    if (isHeldByOtherProgram(name))
        return nullptr;
    std::unique_ptr<QLockFile> lock = portLock(name);
    const bool isTaken = !lock->tryLock(0) && lock->error() == QLockFile::LockFailedError;
    return isTaken ? nullptr : std::move(lock);
}

Descriptor::~Descriptor()
{
    if (m_number >= 0)
        ::close(m_number);
}

Port::Port(DeviceTree &tree, const BoardConfig &config, const QByteArray &usbPath, int index)
    : m_tree(tree)
    , m_config(config)
    , m_usbPath(usbPath)
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

bool Port::prepare(const QString &name, QString &error)
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
    if (ok && addDevices(error))
        return true;
    unplug();
    return false;
}

void Port::appear()
{
    for (const QByteArray &device : std::as_const(m_devices))
        m_tree.show(device);
}

bool Port::addDevices(QString &error)
{
    const UsbIdentity identity{m_config.vendor, m_config.product, m_config.manufacturer, m_config.productName,
                               m_config.serial};
    const QByteArray driver = "cdc_acm";
    const Device usb = usbDevice(m_usbPath, identity, "02", m_usbNumber, driver);
    const Device interface = usbInterface(m_usbPath, identity, "02", {"02", "02", "01"}, driver);
    const QByteArray interfaceName = interface.path.mid(m_usbPath.size() + 1);
    Device tty{interface.path + "/tty/" + m_name.toLatin1(),
               "class/tty",
               {{"dev", deviceNumber()}},
               udevProperties(identity, driver),
               {{"device", "../../../" + interfaceName}}};
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
    // The port becomes a link to a kernel setting that nobody can open for writing. File modes would not stop the user
    // root.
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
    // The kernel passes the board's bytes to the host's end a little later; on a busy machine, much later. poll() makes
    // the kernel finish this first. Without poll(), the bytes on their way would not be counted.
    pollfd hostEnd{m_hostEnd.number(), POLLIN, 0};
    ::poll(&hostEnd, 1, 0);
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
