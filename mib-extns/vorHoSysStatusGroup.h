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
