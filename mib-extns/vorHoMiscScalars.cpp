// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoMiscScalars.h"

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

// The software inventory's row counter.

void init_vorHoMiscScalars(void) {
    VOR_DEBUG("vorHoMiscScalars", "Initializing\n");
    REGISTER_RW_SCALAR(vorHoGenericData, do_vorHoGenericData);
    REGISTER_RO_SCALAR(vorHoSwVerNextIndex);
    set_trap_oids({enterprise_oid, OID_LENGTH(enterprise_oid), vorHoName_oid,
                   OID_LENGTH(vorHoName_oid), vorHoTrapFlags_oid, OID_LENGTH(vorHoTrapFlags_oid),
                   vorHoGenericData_oid, OID_LENGTH(vorHoGenericData_oid)});
}

int do_vorHoGenericData(netsnmp_mib_handler *, netsnmp_handler_registration *,
                        netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_writable_scalar(
        reqinfo, requests, [](netsnmp_request_info *r) { set_text_value(r, get_generic_data()); },
        [](netsnmp_agent_request_info *ri, netsnmp_request_info *r) {
            return check_text_value(ri, r, GENERIC_DATA_SIZE - 1, "vorHoMiscScalars");
        },
        [](const netsnmp_variable_list *v) {
            set_generic_data(reinterpret_cast<const char *>(v->val.string), v->val_len);
        },
        [](const netsnmp_variable_list *) {
            // The stored copy: terminated, unlike the request's value.
            trigger_immediate_trap_send(get_generic_data(), TRAP_GENERIC_DATA_SET);
        });
}

int get_vorHoSwVerNextIndex(netsnmp_mib_handler *, netsnmp_handler_registration *,
                            netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return g_NextIndex + 1; });
}
