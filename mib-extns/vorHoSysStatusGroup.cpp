// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoSysStatusGroup.h"

#include <cstring>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "mib-extns/appl_name.h"

// Response values outlive the handler call.
static u_char s_mib_array[MIB_ARRAY_SIZE];
static u_char s_config_date[CLIENT_DATE_SIZE];
static u_char s_guid[HO_GUID_SIZE];

static const size_t GUID_MIN_LEN = 16;

void init_vorHoSysStatusGroup(void) {
    VOR_DEBUG("vorHoSysStatusGroup", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoMibStatusArray);
    REGISTER_RO_SCALAR(vorHoConfigChangedDate);
    REGISTER_RW_SCALAR(vorHoGUID, do_vorHoGUID);
    REGISTER_RO_SCALAR(vorHoCodeServer);
    REGISTER_RO_SCALAR(vorHoWebMgmtPort);
    register_config_handler(APPL_NAME, HOST_GUID_TOKEN, load_Orbl_Host_sysstatus_tokens, nullptr,
                            nullptr);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_STORE_DATA,
                           store_Orbl_Host_sysstatus_tokens, nullptr);
    set_mib_status_enterprise(enterprise_oid, OID_LENGTH(enterprise_oid));
    // The record only, for the GUID token the configuration read fills in:
    // the status array's local queries wait for the first refresh, once
    // the session with the master is known to be open.
    do_init();
}

int get_vorHoMibStatusArray(netsnmp_mib_handler *, netsnmp_handler_registration *,
                            netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    if (reqinfo->mode != MODE_GET) {
        return SNMP_ERR_GENERR;
    }
    memset(s_mib_array, 0, sizeof(s_mib_array));
    if (const char *a = get_mib_array()) {
        memcpy(s_mib_array, a, sizeof(s_mib_array));
    }
    // All 256 octets, zeros included.
    snmp_set_var_typed_value(requests->requestvb, ASN_OCTET_STR, s_mib_array, sizeof(s_mib_array));
    return SNMP_ERR_NOERROR;
}

int get_vorHoConfigChangedDate(netsnmp_mib_handler *, netsnmp_handler_registration *,
                               netsnmp_agent_request_info *reqinfo,
                               netsnmp_request_info *requests) {
    return serve_date(reqinfo, requests, s_config_date, get_config_change_date());
}

int do_vorHoGUID(netsnmp_mib_handler *, netsnmp_handler_registration *,
                 netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_writable_scalar(
        reqinfo, requests,
        [](netsnmp_request_info *r) {
            memset(s_guid, 0, sizeof(s_guid));
            if (const char *g = getGuid()) {
                memcpy(s_guid, g, sizeof(s_guid));
            }
            snmp_set_var_typed_value(r->requestvb, ASN_OCTET_STR, s_guid,
                                     strnlen(reinterpret_cast<char *>(s_guid), sizeof(s_guid)));
        },
        [](netsnmp_agent_request_info *ri, netsnmp_request_info *r) {
            return check_stored_text(ri, r, GUID_MIN_LEN, HO_GUID_SIZE, nullptr);
        },
        [](const netsnmp_variable_list *v) {
            set_guid_str(reinterpret_cast<const char *>(v->val.string),
                         static_cast<int>(v->val_len));
        });
}

int get_vorHoCodeServer(netsnmp_mib_handler *, netsnmp_handler_registration *,
                        netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, getCodeSever);
}

int get_vorHoWebMgmtPort(netsnmp_mib_handler *, netsnmp_handler_registration *,
                         netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    // Every request for the port rebuilds the status array, in any mode.
    do_misc();
    return serve_integer(reqinfo, requests, get_web_mgmt_port);
}

// The record's GUID as text: its octets up to the first zero, at most the
// whole field (a 17-octet GUID has no terminating zero).
static size_t guid_length(const char *guid) {
    return guid ? strnlen(guid, HO_GUID_SIZE) : 0;
}

void load_Orbl_Host_sysstatus_tokens(const char *token, char *cptr) {
    if (strcmp(token, HOST_GUID_TOKEN) != 0) {
        return;
    }
    const size_t len = length_before_line_end(cptr);
    if ((len == GUID_MIN_LEN || len == HO_GUID_SIZE) && strncmp(cptr, DEFAULT_GUID_STR, len) != 0) {
        set_guid_str(cptr, static_cast<int>(len));
    } else if (guid_length(getGuid()) == 0) {
        // An SMBIOS GUID stays; without one the default stands in.
        set_guid_str(DEFAULT_GUID_STR, static_cast<int>(strlen(DEFAULT_GUID_STR)));
    }
}

int store_Orbl_Host_sysstatus_tokens(int, int, void *, void *) {
    char line[41]; // room for the token, a blank and any GUID the record holds
    const char *guid = getGuid();
    const size_t len = guid_length(guid);
    // SETs hold no line end, but the SMBIOS UUID's raw octets may: such a
    // GUID is not stored (the next start reads it from SMBIOS again).
    if (len > 0 && !memchr(guid, '\n', len) && !memchr(guid, '\r', len)) {
        snprintf(line, sizeof(line), "%s %.*s", HOST_GUID_TOKEN, static_cast<int>(len), guid);
    } else {
        snprintf(line, sizeof(line), "%s %s", HOST_GUID_TOKEN, DEFAULT_GUID_STR);
    }
    store_persistent_line(line);
    return 1;
}
