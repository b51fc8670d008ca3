// SPDX-License-Identifier: Apache-2.0
// Client group: the client last-modified date, read-only.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoClientGroup(void);

Netsnmp_Node_Handler get_vorHoClientLastModified;
