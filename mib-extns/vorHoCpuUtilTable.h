// SPDX-License-Identifier: Apache-2.0
// CPU utilisation table: one row per processor, served through the table
// iterator straight from CpuUtilList. The sampler's timer keeps the rows
// current; the table never refreshes anything itself.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoCpuUtilTable(void);
void initialize_table_vorHoCpuUtilTable(void);

Netsnmp_First_Data_Point vorHoCpuUtilTable_get_first_data_point;
Netsnmp_Next_Data_Point vorHoCpuUtilTable_get_next_data_point;
Netsnmp_Node_Handler vorHoCpuUtilTable_handler;
