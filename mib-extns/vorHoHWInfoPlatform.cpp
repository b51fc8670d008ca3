// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoHWInfoPlatform.h"

#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

static const int c_HwType = 3;

void init_vorHoHWInfoPlatform(void) {
    VOR_DEBUG("vorHoHWInfoPlatform", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoHWInfoPlatform);
}

int get_vorHoHWInfoPlatform(netsnmp_mib_handler *, netsnmp_handler_registration *,
                            netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, [] { return c_HwType; });
}
