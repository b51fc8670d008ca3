#include "interface/kyfixtraps.h"

static const char TRAPSINK_HELP[] = "host [community] [port]";
static const unsigned int ONE_YEAR = 31536000;

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
    register_config_handler("snmpd", "trapsink", snmpd_parse_config_trapsink, snmpd_free_trapsinks,
                            TRAPSINK_HELP);
    register_config_handler("snmpd", "trap2sink", snmpd_parse_config_trap2sink, nullptr,
                            TRAPSINK_HELP);
    snmp_alarm_register(ONE_YEAR, SA_REPEAT, ky_fix_snmp_alarm_donothing_cb, nullptr);
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
