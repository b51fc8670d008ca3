// SPDX-License-Identifier: Apache-2.0
// Local SNMP queries: one GET through the host's master agent, the way the
// status array learns the condition and revision of the enterprise's MIBs.
#pragma once

#include <cstddef>

#include "interface/net_snmp.h"

// Results of one local query.
enum {
    LOCAL_QUERY_NOT_READY = -2,   // the configuration is not read yet: nothing sent
    LOCAL_QUERY_TIMED_OUT = -1,   // no answer within the time-out, or no session
    LOCAL_QUERY_NOT_ANSWERED = 0, // error status, empty answer
    LOCAL_QUERY_ANSWERED = 1,     // the value was stored through value
};

// The community the local queries send: the daemon's -c argument when given,
// else "meadow". The text is copied (at most 255 characters).
void set_local_query_community(const char *community);
const char *get_local_query_community(void);

// 1 when the operator's client defaults ask for SNMPv3 ("defVersion 3" in
// snmp.conf or temhostd.conf): the local queries then use the default
// user, level, protocols and pass phrases instead of the community. Known
// only once the library has read the configuration.
int local_query_uses_v3(void);

// One GET (SNMPv1 with the community, or SNMPv3 as above) of the OID of
// oid_len sub-identifiers to the master agent on this host (the library's
// default port). The queries share one session (local_session.h), closed
// when a query gets no answer or an error of the library, so that the next
// opens anew.
// Stores the first variable's value, read as a signed integer, through
// value and returns LOCAL_QUERY_ANSWERED; otherwise one of the other results,
// LOCAL_QUERY_TIMED_OUT also when no session could be opened.
int snmp_check_oid_exists(const oid *oidstr, size_t oid_len, long *value);
