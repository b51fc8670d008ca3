// SPDX-License-Identifier: Apache-2.0
#include "platform/sysinfo.h"

#include <cerrno>
#include <cstring>
#include <sys/utsname.h>

namespace solaris {

long sysinfo(int command, char *buf, long count) {
    if (count < 0 || (count > 0 && !buf)) {
        errno = EINVAL;
        return -1;
    }
    struct utsname u;
    if (uname(&u) != 0) {
        return -1;
    }
    const char *value;
    switch (command) {
    case SI_SYSNAME:
        value = u.sysname;
        break;
    case SI_RELEASE:
        value = u.release;
        break;
    default:
        errno = EINVAL;
        return -1;
    }
    size_t need = strlen(value) + 1;
    if (count > 0) {
        size_t n = need <= static_cast<size_t>(count) ? need - 1 : static_cast<size_t>(count) - 1;
        memcpy(buf, value, n);
        buf[n] = '\0';
    }
    return static_cast<long>(need);
}

} // namespace solaris
