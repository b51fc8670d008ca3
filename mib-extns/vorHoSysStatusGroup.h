// SPDX-License-Identifier: Apache-2.0
// Status group: the MIB status array, the configuration-change date, the
// host GUID (read-write), the code server and the web-management port.
#pragma once

#include "interface/net_snmp.h"

void init_vorHoSysStatusGroup(void);

Netsnmp_Node_Handler get_vorHoMibStatusArray;
Netsnmp_Node_Handler get_vorHoConfigChangedDate;
Netsnmp_Node_Handler do_vorHoGUID;
Netsnmp_Node_Handler get_vorHoCodeServer;
Netsnmp_Node_Handler get_vorHoWebMgmtPort;

// The host GUID in the persistent file: a value of 16 or 17 characters
// other than the default replaces the record's GUID; anything else leaves an
// SMBIOS GUID in place, or puts in the default where there is none.
#define HOST_GUID_TOKEN "hostguid"
#define DEFAULT_GUID_STR "0000000000000000"
void load_Orbl_Host_sysstatus_tokens(const char *token, char *cptr);
int store_Orbl_Host_sysstatus_tokens(int majorID, int minorID, void *serverarg, void *clientarg);
