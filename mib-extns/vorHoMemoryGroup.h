// SPDX-License-Identifier: Apache-2.0
// Memory group: physical memory and paging space in MB, read-only.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoMemoryGroup(void);

Netsnmp_Node_Handler get_vorHoPhysicalMemorySize;
Netsnmp_Node_Handler get_vorHoPhysicalMemoryFree;
Netsnmp_Node_Handler get_vorHoPagingMemorySize;
Netsnmp_Node_Handler get_vorHoPagingMemoryFree;
