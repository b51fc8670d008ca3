// SPDX-License-Identifier: Apache-2.0
// Miscellaneous scalars: the operator's generic data (read-write, raises
// trap 11003 when set) and the software table's next index.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoMiscScalars(void);

Netsnmp_Node_Handler do_vorHoGenericData;
Netsnmp_Node_Handler get_vorHoSwVerNextIndex;
