// SPDX-License-Identifier: Apache-2.0
// Scaffolding shared by the unit tests.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/host_paths.h"

// A scratch directory, removed with its contents; it serves as the command
// directory (and the host root, when asked) until it goes. Its name holds a
// blank and a quote, as an install directory may: the commands run through
// the shell must still be found.
struct ScratchDir {
    std::string path;
    ScratchDir(bool host_root = false) {
        char dir[] = "/tmp/temhostd unit's-XXXXXX";
        path = mkdtemp(dir) ? dir : "/nonexistent";
        platform::set_command_dir(path);
        if (host_root)
            platform::set_host_root(path);
    }
    ~ScratchDir() {
        platform::set_command_dir(TEMHOSTD_LIBEXEC_DIR);
        platform::set_host_root("");
        std::filesystem::remove_all(path);
    }
    void write(const std::string &rel, const std::string &text) {
        const std::filesystem::path p = path + "/" + rel;
        std::filesystem::create_directories(p.parent_path());
        std::ofstream(p) << text;
    }
    // A command that prints out.
    void command(const std::string &name, const std::string &out) {
        write(name, "#!/bin/sh\ncat <<'END'\n" + out + "END\n");
        chmod((path + "/" + name).c_str(), 0755);
    }
};

// Points the host root at a fixture tree under tests/fixtures.
inline void use_fixture(const std::string &tree) {
    platform::set_host_root(TEMHOSTD_FIXTURES "/" + tree);
}
