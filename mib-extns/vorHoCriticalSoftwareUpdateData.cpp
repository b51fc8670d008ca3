// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoCriticalSoftwareUpdateData.h"

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

void init_vorHoCriticalSoftwareUpdateData(void) {
    VOR_DEBUG("vorHoCriticalSoftwareUpdateData", "Initializing\n");
    REGISTER_RW_SCALAR(vorHoCriticalSoftwareUpdateData, get_vorHoCriticalSoftwareUpdateData);
}

int get_vorHoCriticalSoftwareUpdateData(netsnmp_mib_handler *, netsnmp_handler_registration *,
                                        netsnmp_agent_request_info *reqinfo,
                                        netsnmp_request_info *requests) {
    return serve_writable_scalar(
        reqinfo, requests, [](netsnmp_request_info *r) { set_text_value(r, get_crit_data()); },
        [](netsnmp_agent_request_info *ri, netsnmp_request_info *r) {
            return check_text_value(ri, r, CRIT_DATA_SIZE - 1, "vorHoCriticalSoftwareUpdateData");
        },
        [](const netsnmp_variable_list *v) {
            set_crit_data(reinterpret_cast<const char *>(v->val.string), v->val_len);
        },
        [](const netsnmp_variable_list *) {
            trigger_immediate_trap_send(get_crit_data(), TRAP_CRIT_DATA_SET);
        });
}
