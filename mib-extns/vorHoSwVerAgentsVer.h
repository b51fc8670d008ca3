// SPDX-License-Identifier: Apache-2.0
// The agent's version text, read-only.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoSwVerAgentsVer(void);

Netsnmp_Node_Handler get_vorHoSwVerAgentsVer;
