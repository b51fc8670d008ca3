// SPDX-License-Identifier: Apache-2.0
// MIB revision, condition and poll-frequency group: the agent's
// self-description and the period of the general data refresh.
#include "mib-extns/vorMeMibGroup.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "temhostd.h"

int g_osCommonPollFrequency = 0;
int g_MIbCond = 2;

static const int MIB_REV_MAJOR = 1;
static const int MIB_REV_MINOR = 26;
static const int POLL_FREQ_WITHOUT_VALUE = 60;

void init_vorMeMibGroup(void) {
    VOR_DEBUG("vorMeMibRevMajor", "Initializing\n");
    g_osCommonPollFrequency = 0;
    register_config_handler(APPL_NAME, POLL_FREQ_TOKEN, load_Orbl_Host_OsComm_tokens, nullptr,
                            nullptr);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_STORE_DATA, store_Orbl_Host_tokens,
                           nullptr);
    init_vorMeMibRevMajor();
    init_vorMeMibRevMinor();
    init_vorMeMibCondition();
    init_vorMeOsCommonPollFreq();
}

void init_vorMeMibRevMajor(void) {
    VOR_DEBUG("vorMeMibRevMajor", "Initializing\n");
    REGISTER_RO_SCALAR(vorMeMibRevMajor);
}

void init_vorMeMibRevMinor(void) {
    VOR_DEBUG("vorMeMibRevMinor", "Initializing\n");
    REGISTER_RO_SCALAR(vorMeMibRevMinor);
}

void init_vorMeMibCondition(void) {
    VOR_DEBUG("vorMeMibCondition", "Initializing\n");
    REGISTER_RO_SCALAR(vorMeMibCondition);
}

void init_vorMeOsCommonPollFreq(void) {
    VOR_DEBUG("vorMeOsCommonPollFreq", "Initializing\n");
    REGISTER_RW_SCALAR(vorMeOsCommonPollFreq, do_vorMeOsCommonPollFreq);
}

void set_mib_condition(int condition) {
    if (condition >= 1 && condition <= 4) {
        g_MIbCond = condition;
    }
}

int get_vorMeMibRevMajor(netsnmp_mib_handler *, netsnmp_handler_registration *,
                         netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return MIB_REV_MAJOR; });
}

int get_vorMeMibRevMinor(netsnmp_mib_handler *, netsnmp_handler_registration *,
                         netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return MIB_REV_MINOR; });
}

int get_vorMeMibCondition(netsnmp_mib_handler *, netsnmp_handler_registration *,
                          netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return g_MIbCond; });
}

static int check_poll_frequency(netsnmp_agent_request_info *reqinfo,
                                netsnmp_request_info *request) {
    const netsnmp_variable_list *var = request->requestvb;
    // Polling is switched on only through the persistent file; while it is
    // off no SET may switch it on, whatever the value.
    if (g_osCommonPollFrequency == 0) {
        VOR_DEBUG("vorosPollingTime", "%x Curerntly polling disabled", var->type);
        return refuse_request(reqinfo, request, SNMP_ERR_BADVALUE);
    }
    return check_integer_range(reqinfo, request, POLL_FREQ_MIN, POLL_FREQ_MAX, "vorosPollingTime",
                               "Invalid Polling time");
}

int do_vorMeOsCommonPollFreq(netsnmp_mib_handler *, netsnmp_handler_registration *,
                             netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_writable_scalar(
        reqinfo, requests,
        [](netsnmp_request_info *r) { set_integer_value(r, g_osCommonPollFrequency); },
        check_poll_frequency,
        [](const netsnmp_variable_list *v) {
            g_osCommonPollFrequency = static_cast<int>(*v->val.integer);
            arm_refresh_alarm(g_osCommonPollFrequency);
        });
}

void load_Orbl_Host_OsComm_tokens(const char *token, char *cptr) {
    if (strcmp(token, POLL_FREQ_TOKEN) != 0) {
        return;
    }
    if (!cptr || !*cptr) {
        g_osCommonPollFrequency = POLL_FREQ_WITHOUT_VALUE;
        return;
    }
    // Leading digits count; text without digits gives 0 (polling off). No
    // range check here: the 5..900 range applies to SETs only. Out-of-range
    // numbers saturate rather than overflow.
    errno = 0;
    long value = strtol(cptr, nullptr, 10);
    if (value > INT_MAX) {
        value = INT_MAX;
    }
    if (value < 0) {
        // A negative period means nothing; treat it as "no polling".
        snmp_log(LOG_ERR, "%s: negative value %ld ignored, polling stays off\n", POLL_FREQ_TOKEN,
                 value);
        value = 0;
    }
    g_osCommonPollFrequency = static_cast<int>(value);
}

int store_Orbl_Host_tokens(int, int, void *, void *) {
    char line[33];
    snprintf(line, sizeof(line), "%s %d", POLL_FREQ_TOKEN, g_osCommonPollFrequency);
    store_persistent_line(line);
    return 1;
}
