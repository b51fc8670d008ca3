// SPDX-License-Identifier: Apache-2.0
#include "platform/commands.h"

#include "platform/host_files.h"
#include "platform/host_paths.h"

#include <string>

namespace platform {

namespace {

// Callers keep the returned pointers, so each path lives in a string that is
// only rewritten when the command directory has actually changed.
struct CommandPath {
    std::string dir;
    std::string path;
};

// The path as one shell word: the callers hand it to PopenStream, which
// reads a command line as a shell would, and the install directory may hold
// blanks or other characters the shell reads.
std::string shell_quoted(const std::string &path) {
    std::string quoted = "'";
    for (char c : path) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

// Without memory for the path, "false" runs instead and prints nothing:
// the callers then read "not online", "no listing".
const char *stand_in(CommandPath &cache, const char *name) {
    return c_call<const char *>("false", [&] {
        const std::string &dir = command_dir();
        if (cache.path.empty() || cache.dir != dir) {
            cache.dir = dir;
            cache.path = shell_quoted(dir + "/" + name);
        }
        return cache.path.c_str();
    });
}

} // namespace

const char *svcs_path() {
    static CommandPath cache;
    return stand_in(cache, "svcs");
}

const char *psrinfo_path() {
    static CommandPath cache;
    return stand_in(cache, "psrinfo");
}

const char *pkginfo_path() {
    static CommandPath cache;
    return stand_in(cache, "pkginfo");
}

const char *modinfo_path() {
    static CommandPath cache;
    return stand_in(cache, "modinfo");
}

// The native ps, by its path: nothing chosen by an environment runs as root.
const char *ps_path() {
    return "/bin/ps";
}

const char *systemctl_path() {
    return "/bin/systemctl";
}

} // namespace platform
