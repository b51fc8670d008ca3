// SPDX-License-Identifier: Apache-2.0
// Operating-system facts for the host information group. Every call asks the
// system afresh; nothing is cached.
#pragma once

#include <cstddef>

// Values of the telnet object.
#define TELNET_ONLINE 2
#define TELNET_NOT_ONLINE 3

// The operating-system type code the group serves.
#define HOST_OS_TYPE 19

// sysinfo(SI_SYSNAME) / sysinfo(SI_RELEASE) into the caller's buffer: at most
// namelen bytes with the NUL. Returns sysinfo's result (the size the whole
// value needs, or -1); on failure the buffer keeps what the caller put there.
int get_HostOSName(char *name, size_t namelen);
int get_HostOSVersion(char *version, size_t namelen);

// "<nodename> running <sysname> <release> <version>", cut to namelen - 1
// characters. Always returns 1.
int get_HostOSDesc(char *desc, size_t namelen);

int get_HostOSType(void);

// Runs the service manager's listing on every call: TELNET_ONLINE when a line
// for the telnet service contains "online", TELNET_NOT_ONLINE otherwise,
// including when the listing cannot be run.
int get_HostOSTelnet(void);
