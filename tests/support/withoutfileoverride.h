// SPDX-License-Identifier: MIT
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QtGlobal>

/// While it lives, file permissions hold for root as for anybody: a file of mode 0 cannot be opened.
class WithoutFileOverride
{
public:
    WithoutFileOverride()
    {
        call(SYS_capget, saved);
        __user_cap_data_struct reduced[2] = {saved[0], saved[1]};
        reduced[0].effective &= ~(bit(CAP_DAC_OVERRIDE) | bit(CAP_DAC_READ_SEARCH));
        call(SYS_capset, reduced);
    }
    ~WithoutFileOverride() { call(SYS_capset, saved); }
    Q_DISABLE_COPY_MOVE(WithoutFileOverride)

private:
    static constexpr __u32 bit(unsigned capability) { return 1U << capability; }

    static void call(long number, __user_cap_data_struct* data)
    {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        if (::syscall(number, &header, data) != 0) {
            qFatal("cannot change the capabilities of the test");
        }
    }

    __user_cap_data_struct saved[2] = {};
};
