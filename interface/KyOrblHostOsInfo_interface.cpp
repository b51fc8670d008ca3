// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostOsInfo_interface.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/commands.h"
#include "platform/popen_stream.h"
#include "platform/sysinfo.h"

#define TELNET_SERVICE "svc:/network/telnet"

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

// What "svcs | grep svc:/network/telnet" kept: the service's line is picked
// from svcs' listing here rather than by a second program.
int get_HostOSTelnet(void) {
    platform::PopenStream svcs(platform::svcs_path());
    platform::CommandOutput listing;
    if (!svcs.read_all(listing)) {
        return TELNET_NOT_ONLINE;
    }
    for (const std::string &text : listing.lines()) {
        const char *line = text.c_str();
        if (!strstr(line, TELNET_SERVICE)) {
            continue;
        }
        if (strstr(line, "online")) {
            return TELNET_ONLINE;
        }
    }
    return TELNET_NOT_ONLINE;
}
