// SPDX-License-Identifier: Apache-2.0
#include "daemon/run_marker.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "interface/net_snmp.h"
#include "mib-extns/mib_registration.h"

// The library's own lines of the last store, noted while it stores: the
// engine ID is gone once the library has shut down.
static std::vector<std::string> s_library_lines;
// Whether the directory took a write as the store began (0) or why not.
// Asked then, because the library frees the old file's space at its end.
static int s_store_errno = 0;
static std::string s_probe_path;

static std::string marker_in(const char *dir) {
    return std::string(dir) + "/temhostd.running";
}

// Makes what was done in the directory so far (links, renames, removals)
// survive a power loss from here on.
static void sync_dir(const char *dir) {
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

static bool file_exists(const char *path) {
    return access(path, F_OK) == 0;
}

bool run_marker_present(const char *dir) {
    return file_exists(marker_in(dir).c_str());
}

static void note_stores(const char *dir);

void mark_run_started(const char *dir) {
    note_stores(dir);
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
    sync_dir(dir);
}

static bool read_whole(const char *path, std::string *text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream all;
    all << in.rdbuf();
    *text = all.str();
    return !in.bad();
}

// Writes text as a new file at path, on the disk before it takes the name;
// 0 or the errno of the step that failed.
static int write_file_durably(const std::string &path, const std::string &text) {
    const std::string fresh = path + ".new";
    int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno;
    }
    int err = 0;
    for (size_t done = 0; done < text.size() && err == 0;) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR) {
            err = errno;
        } else if (n > 0) {
            done += static_cast<size_t>(n);
        }
    }
    if (err == 0 && fsync(fd) != 0) {
        err = errno;
    }
    if (close(fd) != 0 && err == 0) {
        err = errno;
    }
    if (err == 0 && rename(fresh.c_str(), path.c_str()) != 0) {
        err = errno;
    }
    if (err != 0) {
        unlink(fresh.c_str());
    }
    return err;
}

// The first word of a line, as the library's reader takes it: tokens match
// whatever their case.
static bool is_token_line(const std::string &line, const char *token) {
    const size_t len = strlen(token);
    return line.size() > len && strncasecmp(line.c_str(), token, len) == 0 &&
           (line[len] == ' ' || line[len] == '\t');
}

// The copy's text with each engineBoots line one higher; false when it has
// none (no SNMPv3 engine stored yet: nothing can go back).
static bool raise_engine_boots(std::string *text) {
    std::istringstream in(*text);
    std::string out, line;
    bool raised = false;
    while (std::getline(in, line)) {
        if (is_token_line(line, "engineBoots")) {
            const unsigned long boots = strtoul(line.c_str() + strlen("engineBoots"), nullptr, 10);
            line = "engineBoots " + std::to_string(boots + 1);
            raised = true;
        }
        out += line + "\n";
    }
    text->swap(out);
    return raised;
}

void roll_back_to_saved_copy(const RunFiles &files) {
    if (!file_exists(files.saved_copy)) {
        // Killed after its store had completed: the file holds it, and is
        // this run's copy to go back to.
        if (link(files.persistent, files.saved_copy) == 0) {
            sync_dir(files.dir);
        }
        return;
    }
    std::string text;
    if (read_whole(files.saved_copy, &text) && raise_engine_boots(&text)) {
        // The raised copy replaces the copy first: killed from here on, the
        // next start raises it again, never lower.
        const int err = write_file_durably(files.saved_copy, text);
        if (err != 0) {
            snmp_log(LOG_ERR,
                     "cannot write %s (%s): going back to it as it is, the SNMPv3 "
                     "engineBoots of the last run is used once more\n",
                     files.saved_copy, strerror(err));
        }
    }
    unlink(files.persistent);
    if (link(files.saved_copy, files.persistent) != 0) {
        // Nothing better to fall back on; the library starts afresh.
    }
    sync_dir(files.dir);
}

static bool every_step(EndStep) {
    return true;
}

static bool (*s_reached)(EndStep) = every_step;

void set_end_step_hook(bool (*hook)(EndStep step)) {
    s_reached = hook ? hook : every_step;
}

static bool reached(EndStep step) {
    return s_reached(step);
}

// 0 when the file, on the disk, holds every stored line; else why not: the
// errno of reading or syncing it, or of writing as much beside it (the
// library's writes report nothing), or -1 for lines missing without a
// failure to show.
static int check_store(const char *path, const std::vector<std::string> &stored) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    const int synced = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    if (synced != 0) {
        return synced;
    }
    std::string text;
    if (!read_whole(path, &text)) {
        return EIO;
    }
    std::istringstream in(text);
    std::vector<std::string> held;
    for (std::string line; std::getline(in, line);) {
        held.push_back(line);
    }
    std::string missing;
    for (const std::string &line : stored) {
        if (std::find(held.begin(), held.end(), line) == held.end()) {
            missing += line + "\n";
        }
    }
    if (missing.empty()) {
        return 0;
    }
    if (s_store_errno != 0) {
        return s_store_errno;
    }
    const std::string probe = std::string(path) + ".probe";
    const int err = write_file_durably(probe, missing);
    unlink(probe.c_str());
    return err != 0 ? err : -1;
}

bool end_run(const RunFiles &files, const std::vector<std::string> &stored, int *pid_fd) {
    if (!reached(EndStep::check_store)) {
        return false;
    }
    const int err = check_store(files.persistent, stored);
    if (err != 0) {
        snmp_log(LOG_ERR,
                 "cannot store %s (%s): the next start goes back to %s, without the "
                 "values set since this run started\n",
                 files.persistent, err > 0 ? strerror(err) : "lines missing", files.saved_copy);
        return false;
    }
    sync_dir(files.dir); // the stored file's name, before the copy goes
    // The saved copy goes first, and its removal completes the store: from
    // here a start that finds the marker or the pid file has nothing to roll
    // back to and keeps the stored file.
    if (!reached(EndStep::drop_saved_copy)) {
        return false;
    }
    unlink(files.saved_copy);
    if (!reached(EndStep::drop_marker)) {
        return true;
    }
    unlink(marker_in(files.dir).c_str());
    if (!reached(EndStep::drop_pid_file)) {
        return true;
    }
    unlink(files.pid_file);
    if (!reached(EndStep::release_lock)) {
        return true;
    }
    if (*pid_fd >= 0) {
        close(*pid_fd); // releases the lock: the run is over
        *pid_fd = -1;
    }
    return true;
}

// Runs first in each store (registered before any other store callback),
// after the library has started the new file.
static int note_library_lines(int, int, void *, void *) {
    if (!s_probe_path.empty()) {
        s_store_errno = write_file_durably(s_probe_path, std::string(4096, '\n'));
        unlink(s_probe_path.c_str());
    }
    s_library_lines.clear();
    s_library_lines.push_back("engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots()));
    u_char id[SNMP_MAXBUF_SMALL];
    const size_t id_len = snmpv3_get_engineID(id, sizeof(id));
    if (id_len > 0) {
        char text[2 * SNMP_MAXBUF_SMALL + 4];
        read_config_save_octet_string(text, id, id_len);
        s_library_lines.push_back(std::string("oldEngineID ") + text);
    }
    return SNMPERR_SUCCESS;
}

static void note_stores(const char *dir) {
    static bool noted = false;
    s_probe_path = std::string(dir) + "/temhostd.conf.probe";
    if (!noted) {
        snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_STORE_DATA, note_library_lines,
                               nullptr);
        noted = true;
    }
}

std::vector<std::string> lines_of_last_store(void) {
    std::vector<std::string> lines = take_stored_lines();
    lines.insert(lines.end(), s_library_lines.begin(), s_library_lines.end());
    return lines;
}
