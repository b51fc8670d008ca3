// SPDX-License-Identifier: Apache-2.0
// Starts getopt afresh. The daemon's option scan, the library's option
// parser and its trapsess parser all scan with getopt, whose position and
// internal state would otherwise carry over from one scan into the next.
#pragma once

#include <unistd.h>

namespace platform {

inline void restart_getopt(void) {
    char name[] = "temhostd";
    char *argv[] = {name, nullptr};
    optind = 0; // glibc: 0 also resets its internal state, read on the next call
    getopt(1, argv, "");
}

} // namespace platform
