// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoSwVerAgentsVer.h"

#include <cstdio>
#include <cstring>

#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

static char version_data[18];

void init_vorHoSwVerAgentsVer(void) {
    VOR_DEBUG("vorHoSwVerAgentsVer", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoSwVerAgentsVer);
    memset(version_data, 0, sizeof(version_data));
    snprintf(version_data, sizeof(version_data), "%d.%d.%d.%d", 2, 3, 0, 0);
}

int get_vorHoSwVerAgentsVer(netsnmp_mib_handler *, netsnmp_handler_registration *,
                            netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    if (reqinfo->mode != MODE_GET) {
        return SNMP_ERR_GENERR;
    }
    set_text_value(requests, version_data);
    return SNMP_ERR_NOERROR;
}
