// Makes a BoardWatch list the ports at every interval, as on a system without udev. On such a system, the monitor that
// receives the kernel's events can't be made. QSerialPortInfo is not affected, because it does not use the monitor.
extern "C" {

struct udev;
struct udev_monitor;

__attribute__((visibility("default"))) udev_monitor *udev_monitor_new_from_netlink(udev *, const char *)
{
    return nullptr;
}

} // extern "C"
