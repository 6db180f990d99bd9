#pragma once

#include <initializer_list>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

/// While this object exists, the calling thread lacks these rights of root, for example CAP_SYS_ADMIN. The numbers of
/// the rights must be less than 32. Does nothing if the user is not root.
class WithoutCapabilities
{
public:
    explicit WithoutCapabilities(std::initializer_list<int> capabilities)
    {
        ::syscall(SYS_capget, &m_header, m_before);
        __user_cap_data_struct now[] = {m_before[0], m_before[1]};
        for (const int capability : capabilities)
            now[0].effective &= ~(1u << capability);
        ::syscall(SYS_capset, &m_header, now);
    }
    ~WithoutCapabilities() { ::syscall(SYS_capset, &m_header, m_before); }
    WithoutCapabilities(const WithoutCapabilities &) = delete;
    WithoutCapabilities &operator=(const WithoutCapabilities &) = delete;

private:
    __user_cap_header_struct m_header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_before[2] = {};
};
