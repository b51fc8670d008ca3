// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoMemoryGroup.h"

#include "interface/KyOrblHostMemory_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

void init_vorHoMemoryGroup(void) {
    VOR_DEBUG("vorHoMemoryGroup", "Initializing\n");
    REGISTER_RO_SCALAR(vorHoPhysicalMemorySize);
    REGISTER_RO_SCALAR(vorHoPhysicalMemoryFree);
    REGISTER_RO_SCALAR(vorHoPagingMemorySize);
    REGISTER_RO_SCALAR(vorHoPagingMemoryFree);
}

int get_vorHoPhysicalMemorySize(netsnmp_mib_handler *, netsnmp_handler_registration *,
                                netsnmp_agent_request_info *reqinfo,
                                netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, get_PhysicalMemorySizeMB);
}

int get_vorHoPhysicalMemoryFree(netsnmp_mib_handler *, netsnmp_handler_registration *,
                                netsnmp_agent_request_info *reqinfo,
                                netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, get_PhysicalMemoryFreeMB);
}

int get_vorHoPagingMemorySize(netsnmp_mib_handler *, netsnmp_handler_registration *,
                              netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, get_VirtualMemorySizeMB);
}

int get_vorHoPagingMemoryFree(netsnmp_mib_handler *, netsnmp_handler_registration *,
                              netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_integer(reqinfo, requests, get_VirtualMemoryFreeMB);
}
