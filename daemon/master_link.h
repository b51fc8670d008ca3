// SPDX-License-Identifier: Apache-2.0
// Ours, beside the daemon's start-up: the link to the master agent. The
// daemon reconnects by itself within about a second when the master comes
// back, pings a connected master only every 30 s, and reports a loss and a
// return with one line each instead of the library's line at every
// reconnection attempt.
#pragma once

// Before init_agent: callbacks for the session's opening and closing, and
// the log filter on the destinations chosen so far.
void watch_master_link(void);
// After init_agent, which puts its own ping interval back.
void after_init_agent(void);
// Puts the filter in front of log destinations added since (init_snmp may
// add some from the configuration).
void filter_connection_chatter(void);
// Whether an AgentX session has opened (init_snmp opens the first).
bool master_session_is_open(void);
