// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblNetSnmp_helpers.h"

#include <cstring>

static const char DEFAULT_LOCAL_COMMUNITY[] = "meadow";
static char s_community[256] = "meadow";

// One session serves every local query while the master answers. An
// SNMPv3 session learns the master's engine ID with a blocking exchange of
// its own: a session per query would repeat it 24 times a rebuild, each a
// whole time-out when the master's port is silent.
static netsnmp_session *s_session = nullptr;
static bool s_session_v3 = false;
// The open failure is logged once until a session opens again.
static bool s_open_failure_logged = false;

static void close_local_session(void) {
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

void set_local_query_community(const char *community) {
    const char *c = community ? community : DEFAULT_LOCAL_COMMUNITY;
    memset(s_community, 0, sizeof(s_community));
    strncpy(s_community, c, sizeof(s_community) - 1);
    close_local_session(); // the next query opens one with this community
}

const char *get_local_query_community(void) {
    return s_community;
}

int local_query_uses_v3(void) {
    return netsnmp_ds_get_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SNMPVERSION) ==
                   NETSNMP_DS_SNMP_VERSION_3
               ? 1
               : 0;
}

// The open session, or a new one; null when none can be opened (an SNMPv3
// open whose engine ID probe gets no answer, say).
static netsnmp_session *local_session(void) {
    const bool v3 = local_query_uses_v3() != 0;
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
        session.community = reinterpret_cast<u_char *>(s_community);
        session.community_len = strlen(s_community);
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

int snmp_check_oid_exists(const oid *oidstr, size_t oid_len, long *value) {
    // Until then the operator's SNMPv3 defaults are unknown: a query would
    // go out with the community and wait in vain on an SNMPv3-only master.
    if (!netsnmp_ds_get_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_HAVE_READ_CONFIG)) {
        return LOCAL_QUERY_NOT_READY;
    }
    netsnmp_session *ss = local_session();
    if (!ss) {
        // As good as a time-out (the open waited for one): the rebuild stops.
        return LOCAL_QUERY_TIMED_OUT;
    }
    int result = LOCAL_QUERY_NOT_ANSWERED;
    int status = STAT_SUCCESS;
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    if (pdu && snmp_add_null_var(pdu, oidstr, oid_len)) {
        netsnmp_pdu *response = nullptr;
        // Sends the request and frees it whatever happens.
        status = snmp_synch_response(ss, pdu, &response);
        // An object nobody serves: SNMPv1 answers the error noSuchName,
        // SNMPv3 an exception, which carries no value.
        if (status == STAT_SUCCESS && response && response->errstat == SNMP_ERR_NOERROR &&
            response->variables && response->variables->val.string) {
            // The objects queried are integers; any other value is read as
            // one too, without reading past what the library holds.
            const netsnmp_variable_list *var = response->variables;
            long v = 0;
            memcpy(&v, var->val.string, var->val_len < sizeof(v) ? var->val_len : sizeof(v));
            *value = v;
            result = LOCAL_QUERY_ANSWERED;
        } else if (status == STAT_TIMEOUT) {
            result = LOCAL_QUERY_TIMED_OUT;
        }
        if (response) {
            snmp_free_pdu(response);
        }
    } else if (pdu) {
        snmp_free_pdu(pdu);
    }
    if (status != STAT_SUCCESS) {
        // No answer, or an SNMPv3 report (a master restarted under another
        // engine ID, say): the next query opens afresh and probes again.
        close_local_session();
    }
    return result;
}
