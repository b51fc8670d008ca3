// SPDX-License-Identifier: Apache-2.0
// The daemon's interface to the modules: the globals they share with it,
// module initialisation and the refresh timers. Everything else about
// start-up and shutdown is private to temhostd.cpp.
#pragma once

#include "mib-extns/appl_name.h" // APPL_NAME

extern int g_do_trap;       // 0 after -T: no traps are sent
extern char *pCommunityStr; // -c argument, or the built-in default
extern int alarm_handle;    // id of the general refresh alarm, 0 when none

int temhostd_main(int argc, char **argv);

// Module initialisation and refresh scheduling. The refresh functions take
// the alarm callback's arguments (and ignore them) so that they can be
// registered as alarms directly.
void init_modules(void);
void refresh_data(unsigned int clientreg = 0, void *clientarg = nullptr);
void refresh_cpu_data(void);
// (Re)arms the general refresh alarm with a period in seconds, replacing
// the one armed before: the only place that alarm is registered.
void arm_refresh_alarm(int period);
