#include "watchports.h"

#include <QDir>
#include <QFile>

#include <umockdev.h>

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using JwSimulator::Descriptor;

namespace {

void writeFile(const QByteArray &name, const QByteArray &text)
{
    QFile file(QFile::decodeName(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) || file.write(text) < 0)
        qFatal("cannot write %s", name.constData());
}

void makeLink(const QByteArray &name, const QByteArray &target)
{
    ::unlink(name);
    if (::symlink(target, name) != 0)
        qFatal("cannot make %s", name.constData());
}

int unread(int descriptor)
{
    int count = 0;
    return ::ioctl(descriptor, FIONREAD, &count) == 0 ? count : 0;
}

QByteArray interfacePath(const UsbPort &port)
{
    const QByteArray device = "1-" + QByteArray::number(port.device + 1);
    return "/sys/devices/usb1/" + device + '/' + port.place().toLatin1();
}

} // namespace

WatchPorts::WatchPorts()
    : m_testbed(umockdev_testbed_new())
{
    gchar *const root = umockdev_testbed_get_root_dir(m_testbed);
    m_root = root;
    g_free(root);
    for (const char *folder : {"/dev", "/sys/class/tty", "/sys/bus/usb/devices"})
        QDir().mkpath(QFile::decodeName(m_root + folder));
    UsbPort port;
    for (port.device = 0; port.device < devices; ++port.device) {
        for (port.interface = 0; port.interface < 2; ++port.interface) {
            const QByteArray interface = m_root + interfacePath(port);
            const QByteArray device = interface.left(interface.lastIndexOf('/'));
            QDir().mkpath(QFile::decodeName(interface + "/tty"));
            writeFile(device + "/uevent", "DEVTYPE=usb_device\n");
            makeLink(device + "/subsystem", "../../../bus/usb");
            writeFile(interface + "/uevent", "DEVTYPE=usb_interface\n");
            makeLink(interface + "/subsystem", "../../../../bus/usb");
        }
    }
}

WatchPorts::~WatchPorts()
{
    while (!m_lines.empty())
        pull(m_lines.begin()->first);
    g_object_unref(m_testbed);
}

QString WatchPorts::name(int number)
{
    static const QString prefix = QStringLiteral("ttyW%1x").arg(::getpid());
    return prefix + QString::number(number);
}

void WatchPorts::plug(const UsbPort &port, bool hasPermission)
{
    const QByteArray name = port.name.toLatin1();
    Line line;
    line.boardEnd = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    const int boardEnd = line.boardEnd.number();
    if (boardEnd < 0 || ::grantpt(boardEnd) != 0 || ::unlockpt(boardEnd) != 0)
        qFatal("cannot make a pty");
    // Keep the port's end open too: if no program has it open, the board's end would otherwise report a hang-up.
    line.hostEnd = Descriptor(::ioctl(boardEnd, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    termios settings;
    ::tcgetattr(line.hostEnd.number(), &settings);
    ::cfmakeraw(&settings);
    ::tcsetattr(line.hostEnd.number(), TCSANOW, &settings);

    line.path = interfacePath(port) + "/tty/" + name;
    const QByteArray folder = m_root + line.path;
    QDir().mkpath(QFile::decodeName(folder));
    QByteArray properties = "MAJOR=166\nMINOR=" + QByteArray::number(port.name.right(1).toInt()) + "\nDEVNAME=/dev/"
        + name + "\nID_BUS=usb\nID_VENDOR=maker\nID_MODEL=board\nID_VENDOR_ID=" + port.usbId().left(4).toLatin1()
        + "\nID_MODEL_ID=" + port.usbId().mid(5).toLatin1() + '\n';
    if (!port.serial.isEmpty())
        properties += "ID_SERIAL_SHORT=" + port.serial.toLatin1() + '\n';
    if (port.isIgnored)
        properties += "JWDEVICE_IGNORE=1\n";
    writeFile(folder + "/uevent", properties);
    makeLink(folder + "/subsystem", "../../../../../../class/tty");
    m_lines[port.name] = std::move(line);
    if (hasPermission)
        permit(port.name);
    else
        setNode(port.name, "/proc/sys/kernel/ostype"); // a file that not even root can open for writing
    makeLink(m_root + "/sys/class/tty/" + name, "../../" + m_lines[port.name].path.mid(int(qstrlen("/sys/"))));
    announce(m_lines[port.name].path, "add");
}

void WatchPorts::pull(const QString &name)
{
    const QByteArray path = m_lines.at(name).path;
    m_lines.erase(name);
    ::unlink(m_root + "/dev/" + name.toLatin1());
    ::unlink(m_root + "/sys/class/tty/" + name.toLatin1());
    announce(path, "remove");
}

void WatchPorts::permit(const QString &name)
{
    char hostName[64];
    ::ptsname_r(descriptor(name), hostName, sizeof hostName);
    setNode(name, hostName);
}

void WatchPorts::change(const QString &name)
{
    announce(m_lines.at(name).path, "change");
}

void WatchPorts::send(const QString &name, const QByteArray &bytes)
{
    // The kernel moves the bytes to the port in a thread of its own. poll() waits for this thread only if the port has
    // no bytes yet, so the loop below waits until all bytes are there.
    const int hostEnd = m_lines.at(name).hostEnd.number();
    const auto expected = unread(hostEnd) + bytes.size();
    if (::write(descriptor(name), bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the line is full");
    pollfd polled = {hostEnd, POLLIN, 0};
    ::poll(&polled, 1, 0);
    while (unread(hostEnd) < expected)
        ::sched_yield();
}

void WatchPorts::dropUnread(const QString &name)
{
    ::tcflush(m_lines.at(name).hostEnd.number(), TCIFLUSH);
}

void WatchPorts::announce(const QByteArray &path, const char *action)
{
    umockdev_testbed_uevent(m_testbed, path, action);
}

void WatchPorts::setNode(const QString &name, const QByteArray &target)
{
    makeLink(m_root + "/dev/" + name.toLatin1(), target);
}
