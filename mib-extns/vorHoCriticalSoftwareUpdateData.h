// SPDX-License-Identifier: Apache-2.0
// The operator's critical-software-update data: read-write, raises trap
// 11014 when set.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoCriticalSoftwareUpdateData(void);

Netsnmp_Node_Handler get_vorHoCriticalSoftwareUpdateData;
