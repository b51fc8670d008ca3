// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblNetSnmp_helpers.h"

#include <cstring>

#include "interface/local_session.h"

static const char DEFAULT_LOCAL_COMMUNITY[] = "meadow";
static char s_community[256] = "meadow";

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

int snmp_check_oid_exists(const oid *oidstr, size_t oid_len, long *value) {
    // Until then the operator's SNMPv3 defaults are unknown: a query would
    // go out with the community and wait in vain on an SNMPv3-only master.
    if (!netsnmp_ds_get_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_HAVE_READ_CONFIG)) {
        return LOCAL_QUERY_NOT_READY;
    }
    netsnmp_session *ss = local_session(local_query_uses_v3() != 0, s_community);
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
