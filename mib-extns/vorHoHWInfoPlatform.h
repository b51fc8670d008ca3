// SPDX-License-Identifier: Apache-2.0
// The hardware platform code, read-only.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoHWInfoPlatform(void);

Netsnmp_Node_Handler get_vorHoHWInfoPlatform;
