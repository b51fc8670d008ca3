// SPDX-License-Identifier: Apache-2.0
// Solaris sysinfo(2). Kept in namespace solaris: glibc's sysinfo() is an
// unrelated call with the same name.
#pragma once

#define SI_SYSNAME 1
#define SI_RELEASE 3

namespace solaris {

// Writes at most count bytes including the NUL into buf; returns the size the
// whole value needs (with its NUL), or -1 with errno set.
long sysinfo(int command, char *buf, long count);

} // namespace solaris
