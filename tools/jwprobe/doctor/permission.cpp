#include "permission.h"

#include "udevdevice.h"
#include "udevrules.h"
#include <jwprobe/search/portidentity.h>

#include <algorithm>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

QString ownerName(uid_t uid)
{
    const passwd *entry = ::getpwuid(uid);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(uid);
}

QString groupName(gid_t gid)
{
    const group *entry = ::getgrgid(gid);
    return entry ? QString::fromLocal8Bit(entry->gr_name) : QString::number(gid);
}

bool contains(const std::vector<gid_t> &groups, gid_t gid)
{
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

// Returns whether the user is a member of the group in the system's list of groups. The user may still lack the rights
// of the group, because a session reads the list only when the user logs in.
bool isListedMember(gid_t gid)
{
    const passwd *user = ::getpwuid(::getuid());
    if (!user)
        return false;
    int count = 0;
    ::getgrouplist(user->pw_name, user->pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    ::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count);
    return contains(groups, gid);
}

bool isActiveMember(gid_t gid)
{
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return ::getegid() == gid || contains(groups, gid);
}

QStringList groupAdvice(const PortIdentity &port, const struct stat &device)
{
    const bool groupMayOpen = (device.st_mode & 0060) == 0060 && device.st_gid != 0;
    if (::geteuid() == 0 || (groupMayOpen && isActiveMember(device.st_gid))) {
        return {QStringLiteral("The mode of the file is not what stops you. Start a container with the port:"),
                QStringLiteral("    --device=%1").arg(port.location)};
    }
    const QString group = groupName(device.st_gid);
    if (!groupMayOpen) {
        return {QStringLiteral("Its group has no access either. Until the board is plugged in again, take the port:"),
                QStringLiteral("    sudo chown $USER %1").arg(port.location)};
    }
    if (isListedMember(device.st_gid)) {
        return {QStringLiteral("You joined the group %1 after this session began: log out and in again, or for one "
                               "shell:")
                    .arg(group),
                QStringLiteral("    newgrp %1").arg(group)};
    }
    return {QStringLiteral("Join the group %1, then log out and in again:").arg(group),
            QStringLiteral("    sudo usermod -aG %1 $USER").arg(group)};
}

QStringList ruleAdvice(const PortIdentity &port)
{
    if (!port.vendorId)
        return {};
    if (UdevDevice(port.name).hasTag("uaccess")) {
        return {QStringLiteral("Its udev rule gives the port to the user at this machine: log in there, not from "
                               "another machine.")};
    }
    const QString file = findAccessRule(port);
    if (!file.isEmpty())
        return QStringList{QStringLiteral("Or apply the udev rule for it in %1:").arg(file)} + applyRulesCommands();
    return QStringList{QStringLiteral("Or install a udev rule that gives the port to the user at this machine; "
                                      "there is none yet:")}
    + installRulesCommands(port);
}

} // namespace

Obstacle noPermission(const PortIdentity &port, const struct stat &device)
{
    return {Obstacle::NoPermission,
            QStringLiteral("no permission: %1 is %2:%3, mode %4")
                .arg(port.location, ownerName(device.st_uid), groupName(device.st_gid))
                .arg(device.st_mode & 07777, 4, 8, QLatin1Char('0')),
            groupAdvice(port, device) + ruleAdvice(port)};
}

} // namespace JwProbe
