// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoClientGroup.h"

#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

static u_char s_client_date[CLIENT_DATE_SIZE];

void init_vorHoClientGroup(void) {
    VOR_DEBUG("vorHoClientGroup", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoClientLastModified);
}

int get_vorHoClientLastModified(netsnmp_mib_handler *, netsnmp_handler_registration *,
                                netsnmp_agent_request_info *reqinfo,
                                netsnmp_request_info *requests) {
    VOR_DEBUG("vorHoClientGroup", "In get_vorHoClientLastModified \n");
    return serve_date(reqinfo, requests, s_client_date, get_client_change_date());
}
