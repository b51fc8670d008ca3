// SPDX-License-Identifier: Apache-2.0
// File system table: one row per mounted file system, served through the
// table iterator straight from FileSysUsageList.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoFileSysTable(void);
void initialize_table_vorHoFileSysTable(void);

Netsnmp_First_Data_Point vorHoFileSysTable_get_first_data_point;
Netsnmp_Next_Data_Point vorHoFileSysTable_get_next_data_point;
Netsnmp_Node_Handler vorHoFileSysTable_handler;

// Seconds between two on-demand rebuilds while periodic polling is off.
#define FS_ON_DEMAND_MIN_INTERVAL 10
