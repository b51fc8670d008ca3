// SPDX-License-Identifier: Apache-2.0
#include "daemon/run_marker.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "interface/net_snmp.h"

static std::string marker_in(const char *dir) {
    return std::string(dir) + "/temhostd.running";
}

// Makes what was done in the directory so far (links, the marker, a file's
// contents) survive a power loss from here on.
static void sync_dir(const char *dir, const char *file_to_sync) {
    if (file_to_sync) {
        int fd = open(file_to_sync, O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            fsync(fd);
            close(fd);
        }
    }
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

bool run_marker_present(const char *dir) {
    return access(marker_in(dir).c_str(), F_OK) == 0;
}

void mark_run_started(const char *dir) {
    mkdir(dir, 0700); // the library would make it only at its first store
    const std::string marker = marker_in(dir);
    int fd = open(marker.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        snmp_log(LOG_ERR,
                 "cannot create %s (%s): the values set during this run are lost if it ends "
                 "in a crash followed by a reboot\n",
                 marker.c_str(), strerror(errno));
        return;
    }
    close(fd);
    sync_dir(dir, nullptr);
}

void mark_run_ended(const char *dir, const char *stored_file) {
    sync_dir(dir, stored_file);
    unlink(marker_in(dir).c_str());
}
