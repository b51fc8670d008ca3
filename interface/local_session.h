// SPDX-License-Identifier: Apache-2.0
// Ours, beside the local SNMP queries: one session to the master on this
// host serves every query while the master answers, instead of a session
// per query. An SNMPv3 session learns the master's engine ID with a
// blocking exchange of its own: a session per query would repeat it 24
// times a rebuild, each a whole time-out when the master's port is silent.
#pragma once

#include "interface/net_snmp.h"

// A local master answers in well under a millisecond, its nested query for
// this daemon's own MIB included; a master that drops the request (an
// unknown community) must not hold the main loop for the library's default
// time-out and retries.
#define LOCAL_QUERY_TIMEOUT_USEC 500000L
#define LOCAL_QUERY_RETRIES 0

// The open session when it was opened for the same version, or a new one
// (SNMPv3 with the operator's client defaults, else SNMPv1 with the
// community); null when none can be opened (an SNMPv3 open whose engine ID
// probe gets no answer, say), which is logged once until one opens again.
netsnmp_session *local_session(bool v3, const char *community);
// Closes it: the next query opens one afresh (after a failed exchange, or
// when the community changes).
void close_local_session(void);
