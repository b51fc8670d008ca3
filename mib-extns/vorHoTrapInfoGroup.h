// SPDX-License-Identifier: Apache-2.0
// Trap-information group: the packed trap flags, read-only.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoTrapInfoGroup(void);

Netsnmp_Node_Handler get_vorHoTrapFlags;
