// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoTrapInfoGroup.h"

#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

void init_vorHoTrapInfoGroup(void) {
    VOR_DEBUG("vorHoTrapInfoGrou:init_vorHoTrapInfoGroup", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoTrapFlags);
}

int get_vorHoTrapFlags(netsnmp_mib_handler *, netsnmp_handler_registration *,
                       netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, get_trap_flags);
}
