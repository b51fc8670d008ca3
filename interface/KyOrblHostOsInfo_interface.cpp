// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostOsInfo_interface.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstring>

#include "platform/commands.h"
#include "platform/popen_stream.h"
#include "platform/sysinfo.h"

#define TELNET_SERVICE "svc:/network/telnet"
#define SVC_CMD_LEN 256
#define SVC_LINE_LEN 256

int get_HostOSName(char *name, size_t namelen) {
    return static_cast<int>(solaris::sysinfo(SI_SYSNAME, name, static_cast<long>(namelen)));
}

int get_HostOSVersion(char *version, size_t namelen) {
    return static_cast<int>(solaris::sysinfo(SI_RELEASE, version, static_cast<long>(namelen)));
}

int get_HostOSDesc(char *desc, size_t namelen) {
    if (namelen == 0) {
        return 1;
    }
    struct utsname u;
    if (uname(&u) != 0) {
        // Half-filled fields would describe some other host: serve an empty
        // description rather than a wrong one.
        desc[0] = '\0';
        return 1;
    }
    snprintf(desc, namelen, "%s %s %s %s %s", u.nodename, "running", u.sysname, u.release,
             u.version);
    return 1;
}

int get_HostOSType(void) {
    return HOST_OS_TYPE;
}

int get_HostOSTelnet(void) {
    char cmd[SVC_CMD_LEN];
    int n = snprintf(cmd, sizeof(cmd), "%s |grep %s", platform::svcs_path(), TELNET_SERVICE);
    // A cut command line would run something else entirely.
    if (n < 0 || static_cast<size_t>(n) >= sizeof(cmd)) {
        return TELNET_NOT_ONLINE;
    }
    platform::PopenStream svcs(cmd);
    if (!svcs.ok()) {
        return TELNET_NOT_ONLINE;
    }
    char line[SVC_LINE_LEN];
    while (svcs.read_line(line, sizeof(line))) {
        if (strstr(line, "online")) {
            return TELNET_ONLINE;
        }
    }
    return TELNET_NOT_ONLINE;
}
