// SPDX-License-Identifier: Apache-2.0
#include "interface/kyfixtraps.h"

#include <string>
#include <unistd.h>

#include "platform/getopt_reset.h"
#include "platform/guard.h"

static const char TRAPSINK_HELP[] = "host [community] [port]";
static const char TRAPSESS_HELP[] = "[snmpcmdargs] host";
static const unsigned int ONE_YEAR = 31536000;

// The session a "trapsess" line has just opened, as the library hands it
// over while parse_trapsess listens for it.
static netsnmp_session *s_new_sink = nullptr;
static int s_new_sink_confirm = 0;

static int take_new_sink(int, int, void *serverarg, void *) {
    auto *args = static_cast<agent_add_trap_args *>(serverarg);
    s_new_sink = args->ss;
    s_new_sink_confirm = args->confirm;
    args->rc = SNMPERR_SUCCESS;
    return SNMPERR_SUCCESS;
}

// One SNMPv3 trap destination's line in the log: its receiver must know
// the user under this engine ID (the daemon's own, not the master's).
static void log_engine_id(const netsnmp_session *ss) {
    std::string hex;
    static const char DIGITS[] = "0123456789abcdef";
    for (size_t i = 0; i < ss->securityEngineIDLen; ++i) {
        hex += DIGITS[ss->securityEngineID[i] >> 4];
        hex += DIGITS[ss->securityEngineID[i] & 0xf];
    }
    snmp_log(LOG_INFO, "SNMPv3 traps for user %s leave under engine ID 0x%s\n",
             ss->securityName ? ss->securityName : "", hex.c_str());
}

// An SNMPv3 inform goes under its receiver's engine ID. Unless the line
// names it (-e), the library discovers it with a blocking exchange before
// an inform, again before every inform while the receiver does not answer:
// each would stall the daemon for the session's whole timeout. The daemon
// asks without waiting instead, from start-up on and again until the
// receiver answers; an inform sent before that is lost, as it would be.
static const unsigned int ENGINE_ID_RETRY_SECONDS = 1;
// Closing the sessions at shutdown times out their open questions, after
// the alarms are gone: none may be asked again then.
static bool s_shutting_down = false;

static int note_shutdown(int, int, void *, void *) {
    s_shutting_down = true;
    return SNMPERR_SUCCESS;
}

static void ask_engine_id(netsnmp_session *ss);

static void ask_engine_id_again(unsigned int, void *ss) {
    ask_engine_id(static_cast<netsnmp_session *>(ss));
}

static int engine_id_reply(int op, netsnmp_session *ss, int, netsnmp_pdu *pdu, void *) {
    if ((op == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE || op == NETSNMP_CALLBACK_OP_SEC_ERROR) &&
        pdu && pdu->securityEngineIDLen > 0) {
        // The receiver's report: what the library does with a discovered
        // ID (unless it has done so already), plus the user that its
        // blocking discovery would make (once: it marks the session).
        if (ss->securityEngineIDLen == 0) {
            ss->securityEngineID = static_cast<u_char *>(
                netsnmp_memdup(pdu->securityEngineID, pdu->securityEngineIDLen));
            ss->securityEngineIDLen = ss->securityEngineID ? pdu->securityEngineIDLen : 0;
        }
        if (ss->contextEngineIDLen == 0 && ss->securityEngineIDLen > 0) {
            ss->contextEngineID = static_cast<u_char *>(
                netsnmp_memdup(ss->securityEngineID, ss->securityEngineIDLen));
            ss->contextEngineIDLen = ss->contextEngineID ? ss->securityEngineIDLen : 0;
        }
        create_user_from_session(ss);
    } else if ((op == NETSNMP_CALLBACK_OP_TIMED_OUT || op == NETSNMP_CALLBACK_OP_SEND_FAILED) &&
               !s_shutting_down) {
        snmp_alarm_register(ENGINE_ID_RETRY_SECONDS, 0, ask_engine_id_again, ss);
    }
    return 1;
}

// The discovery request: a GET from the empty user without authentication,
// answered by a report that carries the receiver's engine ID.
static void ask_engine_id(netsnmp_session *ss) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    if (!pdu) {
        return;
    }
    pdu->version = SNMP_VERSION_3;
    pdu->securityName = strdup("");
    pdu->securityNameLen = 0;
    pdu->securityLevel = SNMP_SEC_LEVEL_NOAUTH;
    pdu->securityModel = SNMP_SEC_MODEL_USM;
    if (!snmp_async_send(ss, pdu, engine_id_reply, nullptr)) {
        snmp_free_pdu(pdu);
        snmp_alarm_register(ENGINE_ID_RETRY_SECONDS, 0, ask_engine_id_again, ss);
    }
}

// The library's own "trapsess" parser, with two repairs. It parses the
// line with getopt, which must start afresh rather than where the daemon's
// option scan left it. And for an SNMPv3 trap it names the daemon's engine
// as the authoritative one only after it has opened the session, too late
// for the user (and its localized keys) to be made from the line: without
// that user every SNMPv3 trap fails with "unknown security name". So the
// session is taken over here, its user made, and only then added.
static void parse_trapsess(const char *token, char *line) {
    // nothing may cross into the library's configuration reader
    platform::c_call(0, [&] {
        platform::restart_getopt();
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_NOTIFICATIONS,
                               take_new_sink, nullptr);
        snmpd_parse_config_trapsess(token, line);
        snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_NOTIFICATIONS,
                                 take_new_sink, nullptr, 1);
        netsnmp_session *ss = s_new_sink;
        s_new_sink = nullptr;
        if (!ss) {
            return 0; // the library has said why
        }
        int pdutype = s_new_sink_confirm ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2;
        if (ss->version == SNMP_VERSION_1) {
            pdutype = SNMP_MSG_TRAP;
        } else if (ss->version == SNMP_VERSION_3 && !s_new_sink_confirm) {
            create_user_from_session(ss);
            log_engine_id(ss);
        } else if (ss->version == SNMP_VERSION_3 && ss->securityEngineIDLen == 0) {
            ss->flags |= SNMP_FLAGS_DONT_PROBE; // no blocking discovery
            ask_engine_id(ss);
        }
        add_trap_session(ss, pdutype, s_new_sink_confirm, static_cast<int>(ss->version));
        return 0;
    });
}

void ky_fix_subagent_traps(void) {
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                           ky_fix_subagent_traps_callback, nullptr);
    // The master's configuration, read from now on, is full of directives
    // the daemon does not know.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_NO_TOKEN_WARNINGS, 1);
    // The master's directives are registered here, not when the session
    // opens: the library opens the AgentX session inside init_snmp, after
    // it has read the configuration files, so directives registered then
    // would never be read at start-up. Registering the type "snmpd" makes
    // init_snmp read the master's snmpd.conf as well.
    // The community of the sink lines that name none (read in file order,
    // as the master does).
    register_config_handler("snmpd", "trapcommunity", snmpd_parse_config_trapcommunity,
                            snmpd_free_trapcommunity, "community-string");
    register_config_handler("snmpd", "trapsink", snmpd_parse_config_trapsink, snmpd_free_trapsinks,
                            TRAPSINK_HELP);
    register_config_handler("snmpd", "trap2sink", snmpd_parse_config_trap2sink, nullptr,
                            TRAPSINK_HELP);
    // The other two ways the master names a destination: acknowledged
    // SNMPv2c informs, and any version through the tools' options (SNMPv3
    // with its user). The one release function above closes them all.
    register_config_handler("snmpd", "informsink", snmpd_parse_config_informsink, nullptr,
                            TRAPSINK_HELP);
    register_config_handler("snmpd", "trapsess", parse_trapsess, nullptr, TRAPSESS_HELP);
    snmp_alarm_register(ONE_YEAR, SA_REPEAT, ky_fix_snmp_alarm_donothing_cb, nullptr);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN, note_shutdown, nullptr);
}

int ky_fix_subagent_traps_callback(int, int, void *serverarg, void *) {
    // The library makes every new master session a trap destination (also
    // after a reconnect); our traps go to the master's sinks directly.
    if (serverarg) {
        remove_trap_session(static_cast<netsnmp_session *>(serverarg));
    }
    return 1;
}

void ky_fix_snmp_alarm_donothing_cb(unsigned int, void *) {}
