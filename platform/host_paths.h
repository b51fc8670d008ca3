// SPDX-License-Identifier: Apache-2.0
// Where the platform layer finds the host: the files it reads and the
// Solaris command stand-ins it runs. The daemon uses the defaults; unit
// tests point both at fixture trees through these setters.
#pragma once

#include <string>

namespace platform {

// Prefix put before every host file the stand-ins read (/proc, /sys,
// /var/lib/dpkg, /etc). Empty by default: the live host.
void set_host_root(const std::string &root);
std::string host_path(const char *path);
// The prefix itself (empty for the live host).
const std::string &host_root();

// Directory of the command stand-ins (svcs, psrinfo, pkginfo, modinfo).
// Defaults to ../libexec/temhostd beside the running executable, which holds
// both in the build tree and in an installed tree.
void set_command_dir(const std::string &dir);
const std::string &command_dir();

} // namespace platform
