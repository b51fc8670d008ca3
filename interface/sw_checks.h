// SPDX-License-Identifier: Apache-2.0
// Ours, beside the software inventory: the running-state checks of its rows
// answered from one run of each check command per refresh (the process list,
// the module list) instead of one pipeline per row, with the list commands
// the watch list needs started before the package listing so that they run
// at the same time; the watched systemd units' states come from one
// "systemctl show" of them all. The inventory's IsProcessRunning/
// IsDriverLoaded call sw_check.
#pragma once

#include <string>
#include <vector>

// CHECK_PROCESS and CHECK_MODULE keep the filter rows' grep of a listing
// line; CHECK_PROCESS_NAME, the watch list's, matches a process's own name;
// CHECK_UNIT asks systemd for a unit's state.
enum { CHECK_NONE, CHECK_PROCESS, CHECK_MODULE, CHECK_PROCESS_NAME, CHECK_UNIT };

// The units CHECK_UNIT may ask about, all asked at once in this order
// (each once); cleared when the watch list is read again.
void add_watched_unit(const std::string &unit);
void clear_watched_units(void);

// Runs one check command (the process or module list) and gives its output
// lines; false when it could not be started. Tests put in a runner of their
// own; null restores the one that starts the program.
typedef bool (*swver_command_fn)(const char *command, std::vector<std::string> *lines);
void set_swver_command_runner(swver_command_fn run);

// 2 (running) when exe is in the process (or module) list as "| grep exe"
// (and, for processes, "| grep -v grep") would keep a line, 3 when not, 1
// when the list cannot be had. CHECK_PROCESS_NAME: 2 when a process's
// command name or the file name of its executable is exe exactly; the
// arguments, the user and the rest of the path count for nothing, so that
// "exec -a NAME" fakes no process and a NAME holding "grep" is found. A
// NAME longer than a command name (15 characters) is also a script
// started through its "#!" line: a process whose command name is NAME cut
// to 15 and whose second or third argument (after the interpreter and at
// most one argument of its own) is a path whose file name is NAME.
// CHECK_UNIT: 2 when the unit's ActiveState is active or reloading, 3 for
// any other, 1 when systemd does not know it (LoadState not-found) or
// cannot answer.
int sw_check(int check, const char *exe);

// While one is alive (a refresh), each distinct check command runs once
// and every check is answered from its output.
class SwCheckRefresh {
  public:
    SwCheckRefresh();
    ~SwCheckRefresh();
    SwCheckRefresh(const SwCheckRefresh &) = delete;
    SwCheckRefresh &operator=(const SwCheckRefresh &) = delete;
    // Starts the command of a check that will be asked for, without waiting.
    void start_ahead(int check);
};
