// SPDX-License-Identifier: Apache-2.0
// Trap-sink repair: the daemon sends its traps straight to the master
// agent's destinations ("trapsink", "trap2sink", "informsink" and
// "trapsess" lines) instead of handing them to the master over the AgentX
// session.
#pragma once

#include "interface/net_snmp.h"

// Arms the repair; called once before the connection to the master opens.
void ky_fix_subagent_traps(void);
// Runs each time the session with the master opens; serverarg is that session.
int ky_fix_subagent_traps_callback(int major, int minor, void *serverarg, void *clientarg);
void ky_fix_snmp_alarm_donothing_cb(unsigned int clientreg, void *clientarg);
