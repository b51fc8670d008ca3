// SPDX-License-Identifier: Apache-2.0
// Ours, beside the software inventory: the operator's watch list, one line
// each in the daemon's configuration file:
//   softwareWatch KIND PACKAGE-PREFIX [process NAME | module NAME | unit UNIT]
// KIND is 1 to 5 or driver, agent, utility, application. Every listed
// package whose name begins with the prefix (case-sensitive) and that the
// inventory's filters left out gets a row after theirs; its state is
// whether a process is named NAME (its command name or the file name of its
// executable, exactly), NAME is in the kernel module list, or systemd has
// UNIT active (a name without a unit suffix is a .service), unknown
// without a check. The first line whose prefix matches decides. A bad line
// is reported with its file and line number and skipped.
#pragma once

#include <string>

class SwCheckRefresh;

#define SWVER_WATCH_TOKEN "softwareWatch"
#define SWVER_WATCH_HELP "KIND PACKAGE-PREFIX [process NAME | module NAME | unit UNIT]"
void parse_softwareWatch(const char *token, char *line);
// Forgets the watch list (the library calls it before reading again).
void free_softwareWatch(void);

struct WatchLine {
    int type;  // the row's kind
    int check; // CHECK_* of sw_checks.h
    std::string prefix;
    std::string exe;
};

// The line that watches the package, or null.
const WatchLine *sw_watch_for(const char *name);
bool sw_watching(void);
// The row's running state (SWVER_STATUS_*).
int sw_watch_status(const WatchLine &watch);
// Starts the list commands the watched rows will ask for.
void sw_watch_start_checks(SwCheckRefresh &refresh);
