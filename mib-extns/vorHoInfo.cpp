// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoInfo.h"

#include <algorithm>
#include <cstring>

#include "interface/KyOrblHostOsInfo_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "mib-extns/appl_name.h"

#define HO_TEXT_LEN 256

static char sSystemRole[SYS_ROLE_MAX_LEN + 1];
static char sSystemRoleDetail[SYS_ROLE_DETAIL_MAX_LEN + 1];

// The last value each read-only object served.
static char psHoName[HO_TEXT_LEN];
static char psHoVersion[HO_TEXT_LEN];
static char psHoDesc[HO_TEXT_LEN];
static int iHostOsType;
static int iTelnetaVailable;

void init_vorHoInfo(void) {
    VOR_DEBUG("vorHoDesc", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoName);
    REGISTER_RO_SCALAR(vorHoVersion);
    REGISTER_RO_SCALAR(vorHoDesc);
    REGISTER_RO_SCALAR(vorHoOsType);
    REGISTER_RO_SCALAR(vorHoTelnet);
    REGISTER_RW_SCALAR(vorHoSystemRole, do_vorHoSystemRole);
    REGISTER_RW_SCALAR(vorHoSystemRoleDetail, do_vorHoSystemRoleDetail);
    initPersistance();
}

static void store_text(char *buf, size_t bufsize, const char *value, size_t len) {
    memset(buf, 0, bufsize);
    len = std::min(len, bufsize - 1);
    if (value && len > 0) {
        memcpy(buf, value, len);
    }
}

const char *get_system_role(void) {
    return sSystemRole;
}
const char *get_system_role_detail(void) {
    return sSystemRoleDetail;
}

void set_system_role(const char *value, size_t len) {
    store_text(sSystemRole, sizeof(sSystemRole), value, len);
}

void set_system_role_detail(const char *value, size_t len) {
    store_text(sSystemRoleDetail, sizeof(sSystemRoleDetail), value, len);
}

typedef int (*os_text_fn)(char *buf, size_t len);

static int serve_os_text(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests,
                         char *buf, os_text_fn provider) {
    // Cleared first: a provider that fails leaves an empty string, not the
    // previous answer.
    memset(buf, 0, HO_TEXT_LEN);
    if (reqinfo->mode != MODE_GET) {
        return SNMP_ERR_GENERR;
    }
    provider(buf, HO_TEXT_LEN);
    set_text_value(requests, buf);
    return SNMP_ERR_NOERROR;
}

int get_vorHoName(netsnmp_mib_handler *, netsnmp_handler_registration *,
                  netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_os_text(reqinfo, requests, psHoName, get_HostOSName);
}

int get_vorHoVersion(netsnmp_mib_handler *, netsnmp_handler_registration *,
                     netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_os_text(reqinfo, requests, psHoVersion, get_HostOSVersion);
}

int get_vorHoDesc(netsnmp_mib_handler *, netsnmp_handler_registration *,
                  netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_os_text(reqinfo, requests, psHoDesc, get_HostOSDesc);
}

int get_vorHoOsType(netsnmp_mib_handler *, netsnmp_handler_registration *,
                    netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return iHostOsType = get_HostOSType(); });
}

int get_vorHoTelnet(netsnmp_mib_handler *, netsnmp_handler_registration *,
                    netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    // The service query runs on every GET; nothing is cached.
    return serve_integer(reqinfo, requests, [] { return iTelnetaVailable = get_HostOSTelnet(); });
}

// The two role objects differ only in buffer, limit and debug token.
static int do_role(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests, char *buf,
                   size_t bufsize, const char *token) {
    return serve_writable_scalar(
        reqinfo, requests, [&](netsnmp_request_info *r) { set_text_value(r, buf); },
        [&](netsnmp_agent_request_info *ri, netsnmp_request_info *r) {
            return check_stored_text(ri, r, 0, bufsize - 1, token);
        },
        [&](const netsnmp_variable_list *v) {
            store_text(buf, bufsize, reinterpret_cast<const char *>(v->val.string), v->val_len);
        });
}

int do_vorHoSystemRole(netsnmp_mib_handler *, netsnmp_handler_registration *,
                       netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return do_role(reqinfo, requests, sSystemRole, sizeof(sSystemRole), "vorSystemRole");
}

int do_vorHoSystemRoleDetail(netsnmp_mib_handler *, netsnmp_handler_registration *,
                             netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return do_role(reqinfo, requests, sSystemRoleDetail, sizeof(sSystemRoleDetail),
                   "vorSystemRoleDetail");
}

int initPersistance(void) {
    register_config_handler(APPL_NAME, SYS_ROLE_TOKEN, load_Orbl_Host_tokens, nullptr, nullptr);
    register_config_handler(APPL_NAME, SYS_ROLE_DETAIL_TOKEN, load_Orbl_Host_tokens, nullptr,
                            nullptr);
    return snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG,
                                  hostinfo_post_read_config, nullptr);
}

void load_Orbl_Host_tokens(const char *token, char *cptr) {
    // A CR (a file edited elsewhere) ends the value as a line end would.
    const size_t len = length_before_line_end(cptr);
    if (strcmp(token, SYS_ROLE_TOKEN) == 0) {
        set_system_role(cptr, len);
    } else if (strcmp(token, SYS_ROLE_DETAIL_TOKEN) == 0) {
        set_system_role_detail(cptr, len);
    }
}

int hostinfo_post_read_config(int, int, void *, void *) {
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_STORE_DATA, hostInfo_store_config,
                           nullptr);
    snmp_save_persistent(APPL_NAME);
    snmp_clean_persistent(APPL_NAME);
    return SNMPERR_SUCCESS;
}

int hostInfo_store_config(int, int, void *, void *) {
    if (sSystemRole[0] == '\0') {
        set_system_role(DUMMY_SYS_ROLE_STR, strlen(DUMMY_SYS_ROLE_STR));
    }
    if (sSystemRoleDetail[0] == '\0') {
        set_system_role_detail(DUMMY_SYS_ROLE_DET_STR, strlen(DUMMY_SYS_ROLE_DET_STR));
    }
    // Token, blank, longest value and NUL: a value at its limit is stored whole.
    char role_line[sizeof(SYS_ROLE_TOKEN) + 1 + SYS_ROLE_MAX_LEN];
    char detail_line[sizeof(SYS_ROLE_DETAIL_TOKEN) + 1 + SYS_ROLE_DETAIL_MAX_LEN];
    static_assert(sizeof(role_line) == 77 && sizeof(detail_line) == 532, "line buffers");
    snprintf(role_line, sizeof(role_line), "%s %s", SYS_ROLE_TOKEN, sSystemRole);
    store_persistent_line(role_line);
    snprintf(detail_line, sizeof(detail_line), "%s %s", SYS_ROLE_DETAIL_TOKEN, sSystemRoleDetail);
    store_persistent_line(detail_line);
    return 0;
}
