// SPDX-License-Identifier: Apache-2.0
#include "platform/host_paths.h"

#include <climits>
#include <filesystem>
#include <unistd.h>

namespace platform {

namespace {

// Only the setters change these: the daemon runs as root, so nothing from
// its environment may redirect what it reads or what it executes.
std::string s_host_root;
std::string s_command_dir;
bool s_command_dir_set = false;

// Used only when /proc/self/exe cannot be read (no /proc mounted).
const char kFallbackCommandDir[] = "/usr/libexec/temhostd";

std::string default_command_dir() {
    char exe[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) {
        return kFallbackCommandDir;
    }
    exe[n] = '\0';
    std::filesystem::path dir = std::filesystem::path(exe).parent_path();
    std::string out = (dir / ".." / "libexec" / "temhostd").lexically_normal().string();
    while (out.size() > 1 && out.back() == '/') {
        out.pop_back();
    }
    return out;
}

} // namespace

void set_host_root(const std::string &root) {
    s_host_root = root;
    // "/" and "" both mean the live host; a trailing slash would double up.
    while (!s_host_root.empty() && s_host_root.back() == '/') {
        s_host_root.pop_back();
    }
}

const std::string &host_root() {
    return s_host_root;
}

std::string host_path(const char *path) {
    return s_host_root + (path ? path : "");
}

void set_command_dir(const std::string &dir) {
    s_command_dir = dir;
    s_command_dir_set = true;
}

const std::string &command_dir() {
    if (!s_command_dir_set) {
        s_command_dir = default_command_dir();
        s_command_dir_set = true;
    }
    return s_command_dir;
}

} // namespace platform
