// Simulates a system without udev for the test that contains this file: the monitor that receives the kernel's events
// can't be made. So a BoardWatch lists the ports at each poll interval instead. QSerialPortInfo works as usual, because
// it does not use the monitor.
extern "C" {

struct udev;
struct udev_monitor;

__attribute__((visibility("default"))) udev_monitor *udev_monitor_new_from_netlink(udev *, const char *)
{
    return nullptr;
}

} // extern "C"
