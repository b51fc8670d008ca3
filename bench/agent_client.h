// SPDX-License-Identifier: Apache-2.0
// What the benchmarks share as clients of the master agent at
// 127.0.0.1:161 (community "meadow"), which run-all starts in a private host.
#pragma once

#include <chrono>
#include <cstdio>

#include "interface/net_snmp.h"

// The master's own sysUpTime.0, the figure ours are measured against.
inline const oid sysUpTime_oid[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};

// A v2c session to the master; nullptr, after a message, if none opens.
inline netsnmp_session *open_agent_session() {
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_VERSION_2c;
    session.peername = const_cast<char *>("127.0.0.1");
    session.community = reinterpret_cast<u_char *>(const_cast<char *>("meadow"));
    session.community_len = 6;
    netsnmp_session *ss = snmp_open(&session);
    if (!ss) {
        snmp_perror("snmp_open");
    }
    return ss;
}

// One GET of name: true when it came back with a value (no error, no
// noSuchObject or noSuchInstance).
inline bool get_answered(netsnmp_session *ss, const oid *name, size_t len) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    snmp_add_null_var(pdu, name, len);
    netsnmp_pdu *response = nullptr;
    const int status = snmp_synch_response(ss, pdu, &response);
    const bool ok = status == STAT_SUCCESS && response && response->errstat == SNMP_ERR_NOERROR &&
                    response->variables && response->variables->type != SNMP_NOSUCHOBJECT &&
                    response->variables->type != SNMP_NOSUCHINSTANCE;
    if (response) {
        snmp_free_pdu(response);
    }
    return ok;
}

// GETs per second of one object, count GETs in a row; negative when one
// failed.
inline double get_rate(netsnmp_session *ss, const oid *name, size_t len, int count) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        if (!get_answered(ss, name, len)) {
            return -1;
        }
    }
    const std::chrono::duration<double> secs = std::chrono::steady_clock::now() - start;
    return count / secs.count();
}
