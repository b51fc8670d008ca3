// SPDX-License-Identifier: Apache-2.0
#include "interface/local_session.h"

#include <cstring>

static netsnmp_session *s_session = nullptr;
static bool s_session_v3 = false;
// The open failure is logged once until a session opens again.
static bool s_open_failure_logged = false;

void close_local_session(void) {
    if (s_session) {
        snmp_close(s_session);
        s_session = nullptr;
    }
}

// The library closes every session when it shuts down; ours goes first,
// so that nothing here points at a session that is gone.
static int close_at_shutdown(int, int, void *, void *) {
    close_local_session();
    return SNMPERR_SUCCESS;
}

netsnmp_session *local_session(bool v3, const char *community) {
    if (s_session && s_session_v3 == v3) {
        return s_session;
    }
    close_local_session();
    netsnmp_session session;
    snmp_sess_init(&session);
    if (v3) {
        // The operator's client defaults (defSecurityName, defAuthType,
        // defAuthPassphrase, ...): snmp_open fills in what is left unset.
        session.version = SNMP_VERSION_3;
        // The engine ID is discovered by the open, once, not by the first
        // request: an open whose probe gets no answer fails.
        session.flags &= ~SNMP_FLAGS_DONT_PROBE;
    } else {
        session.version = SNMP_VERSION_1;
        session.community = reinterpret_cast<u_char *>(const_cast<char *>(community));
        session.community_len = strlen(community);
    }
    session.peername = const_cast<char *>("localhost");
    session.timeout = LOCAL_QUERY_TIMEOUT_USEC;
    session.retries = LOCAL_QUERY_RETRIES;
    s_session = snmp_open(&session);
    if (s_session && v3 && s_session->securityEngineIDLen == 0) {
        // Without an engine ID every request would probe again, as long.
        close_local_session();
    }
    if (!s_session) {
        if (!s_open_failure_logged) {
            s_open_failure_logged = true;
            snmp_log(LOG_ERR,
                     "snmpTriggerTable: can't get master session for authentication params\n");
        }
        return nullptr;
    }
    static bool s_shutdown_registered = false;
    if (!s_shutdown_registered) {
        s_shutdown_registered = true;
        snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN, close_at_shutdown,
                               nullptr);
    }
    s_session_v3 = v3;
    s_open_failure_logged = false;
    return s_session;
}
