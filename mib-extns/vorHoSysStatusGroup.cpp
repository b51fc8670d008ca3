#include "mib-extns/vorHoSysStatusGroup.h"

#include <cstring>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

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
    // The persistent "hostguid" token is registered here with the
    // persistent-state code, before the record is created.
    set_mib_status_enterprise(enterprise_oid, OID_LENGTH(enterprise_oid));
    do_misc();
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
            const netsnmp_variable_list *var = r->requestvb;
            if (var->type != ASN_OCTET_STR) {
                return refuse_request(ri, r, SNMP_ERR_WRONGTYPE);
            }
            if (var->val_len < GUID_MIN_LEN || var->val_len > HO_GUID_SIZE) {
                return refuse_request(ri, r, SNMP_ERR_WRONGLENGTH);
            }
            return static_cast<int>(SNMP_ERR_NOERROR);
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
