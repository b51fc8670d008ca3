// SPDX-License-Identifier: Apache-2.0
// Solaris mount-table access: struct mnttab and the two-argument getmntent.
// Kept in namespace solaris: glibc's getmntent() has another signature.
#pragma once

#include <cstdio>

// Results of getmntent besides 0 (an entry) and -1 (end of table).
#define MNT_TOOLONG 1 // a line longer than the reader accepts (skipped whole)
#define MNT_TOOMANY 2 // more fields than a mount line has
#define MNT_TOOFEW 3  // fewer fields than a mount line has

struct mnttab {
    char *mnt_special;
    char *mnt_mountp;
    char *mnt_fstype;
    char *mnt_mntopts;
    char *mnt_time;
};

namespace solaris {

// The mount table's path: /etc/mnttab on Solaris, /proc/self/mounts here.
const char *mnttab_path();

// Fills mp from the next entry of fp. The strings stay valid until the next
// call. Linux kernel-interface file systems with no Solaris counterpart
// (sysfs, cgroup, devpts, ...) are passed over.
int getmntent(FILE *fp, struct mnttab *mp);

} // namespace solaris

#define MNTTAB (solaris::mnttab_path())
