// SPDX-License-Identifier: Apache-2.0
// Software version table: one row per recognised management package,
// served through the table iterator straight from swVerList. Kind,
// description and location are writable; their edits outlive rebuilds.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoSwVerTable(void);
void initialize_table_vorHoSwVerTable(void);

Netsnmp_First_Data_Point vorHoSwVerTable_get_first_data_point;
Netsnmp_Next_Data_Point vorHoSwVerTable_get_next_data_point;
Netsnmp_Node_Handler vorHoSwVerTable_handler;

// Seconds between two on-demand rebuilds while periodic polling is off:
// every rebuild starts one command per package, so it is paced wider than
// the file system table's.
#define SWVER_ON_DEMAND_MIN_INTERVAL 15
// Longest description and location an operator may set, in octets.
#define SWVER_DESC_MAX_LEN 127
#define SWVER_LOC_MAX_LEN 255
