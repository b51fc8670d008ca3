// SPDX-License-Identifier: Apache-2.0
#include "platform/mnttab.h"

#include "platform/host_files.h"
#include "platform/host_paths.h"

#include <cstring>
#include <string>

namespace {

// A path may be PATH_MAX (4096) bytes and the kernel writes blanks, tabs,
// newlines and backslashes in it as four-byte escapes. Two such paths and
// a long option string (overlay's lowerdir lists) fit with room to spare.
constexpr size_t kLineMax = 64 * 1024;

// Kernel interfaces mounted as file systems: they hold no files of their
// own and Solaris has nothing like them, so they are not mounts to report.
// proc and autofs do have Solaris counterparts and pass through.
const char *const kKernelInterfaceTypes[] = {
    "sysfs",    "cgroup",    "cgroup2",    "devpts",    "securityfs", "debugfs",     "tracefs",
    "pstore",   "bpf",       "mqueue",     "configfs",  "fusectl",    "binfmt_misc", "nsfs",
    "efivarfs", "hugetlbfs", "rpc_pipefs", "selinuxfs", "cpuset",     "nfsd",        "smackfs",
    "resctrl",  "xenfs",     "oprofilefs", "spufs",     "usbfs",
};

bool is_kernel_interface(const char *fstype) {
    for (const char *t : kKernelInterfaceTypes) {
        if (strcmp(fstype, t) == 0) {
            return true;
        }
    }
    return false;
}

bool is_octal(char c) {
    return c >= '0' && c <= '7';
}

// Undoes the kernel's \ooo escapes in place. Anything that is not a
// complete escape of a non-NUL byte stays as written.
void unescape(char *s) {
    char *out = s;
    while (*s) {
        if (s[0] == '\\' && is_octal(s[1]) && is_octal(s[2]) && is_octal(s[3]) && s[1] <= '3') {
            int v = (s[1] - '0') * 64 + (s[2] - '0') * 8 + (s[3] - '0');
            if (v != 0) {
                *out++ = static_cast<char>(v);
                s += 4;
                continue;
            }
        }
        *out++ = *s++;
    }
    *out = '\0';
}

bool is_sep(char c) {
    return c == ' ' || c == '\t';
}

// Splits line into at most max_fields blank-separated fields in place.
// Returns the number of fields found, or max_fields + 1 when there are more.
int split(char *line, char **fields, int max_fields) {
    int n = 0;
    char *p = line;
    for (;;) {
        while (is_sep(*p)) {
            ++p;
        }
        if (!*p) {
            return n;
        }
        if (n == max_fields) {
            return max_fields + 1;
        }
        fields[n++] = p;
        while (*p && !is_sep(*p)) {
            ++p;
        }
        if (*p) {
            *p++ = '\0';
        }
    }
}

char s_line[kLineMax + 2];
char s_empty_time[1] = "";

} // namespace

namespace solaris {

const char *mnttab_path() {
    static std::string path;
    return platform::c_call<const char *>("/proc/self/mounts", [] {
        std::string now = platform::host_path("/proc/self/mounts");
        if (path != now) {
            path = now;
        }
        return path.c_str();
    });
}

int getmntent(FILE *fp, struct mnttab *mp) {
    if (!fp || !mp) {
        return -1;
    }
    for (;;) {
        if (!fgets(s_line, sizeof(s_line), fp)) {
            return -1;
        }
        size_t len = strlen(s_line);
        bool complete = len > 0 && s_line[len - 1] == '\n';
        if (!complete && len == sizeof(s_line) - 1 && !feof(fp)) {
            // Too long: consume the rest so the next call starts on a line.
            int c;
            while ((c = fgetc(fp)) != EOF && c != '\n') {
            }
            return MNT_TOOLONG;
        }
        if (complete) {
            s_line[--len] = '\0';
        }

        // Linux lines hold six fields (device, mount point, type, options,
        // dump frequency, fsck pass); the last two may be missing elsewhere.
        char *f[6];
        int n = split(s_line, f, 6);
        if (n > 6) {
            return MNT_TOOMANY;
        }
        if (n < 4) {
            return MNT_TOOFEW;
        }
        for (int i = 0; i < 4; ++i) {
            unescape(f[i]);
        }
        if (is_kernel_interface(f[2])) {
            continue;
        }
        mp->mnt_special = f[0];
        mp->mnt_mountp = f[1];
        mp->mnt_fstype = f[2];
        mp->mnt_mntopts = f[3];
        // Linux keeps no mount time.
        mp->mnt_time = s_empty_time;
        return 0;
    }
}

} // namespace solaris
