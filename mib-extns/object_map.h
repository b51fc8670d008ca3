// SPDX-License-Identifier: Apache-2.0
// Every object the daemon serves, with its OID: the one place OIDs are
// written. Scalars carry the instance .0; tables are the table object's OID.
#pragma once

#include "interface/net_snmp.h"

#define VOR_ENTERPRISE 1, 3, 6, 1, 4, 1, 32473
#define VOR_ROOT VOR_ENTERPRISE, 11

// MIB revision group, .11.1
inline const oid vorMeMibRevMajor_oid[] = {VOR_ROOT, 1, 1, 0};
inline const oid vorMeMibRevMinor_oid[] = {VOR_ROOT, 1, 2, 0};
inline const oid vorMeMibCondition_oid[] = {VOR_ROOT, 1, 3, 0};

// Host-OS groups, .11.2
inline const oid vorMeOsCommonPollFreq_oid[] = {VOR_ROOT, 2, 1, 4, 1, 0};

inline const oid vorHoName_oid[] = {VOR_ROOT, 2, 2, 1, 0};
inline const oid vorHoVersion_oid[] = {VOR_ROOT, 2, 2, 2, 0};
inline const oid vorHoDesc_oid[] = {VOR_ROOT, 2, 2, 3, 0};
inline const oid vorHoOsType_oid[] = {VOR_ROOT, 2, 2, 4, 0};
inline const oid vorHoTelnet_oid[] = {VOR_ROOT, 2, 2, 5, 0};
inline const oid vorHoSystemRole_oid[] = {VOR_ROOT, 2, 2, 6, 0};
inline const oid vorHoSystemRoleDetail_oid[] = {VOR_ROOT, 2, 2, 7, 0};

inline const oid vorHoCpuUtilTable_oid[] = {VOR_ROOT, 2, 3, 1};
inline const oid vorHoFileSysTable_oid[] = {VOR_ROOT, 2, 4, 1};

inline const oid vorHoSwVerNextIndex_oid[] = {VOR_ROOT, 2, 7, 1, 0};
inline const oid vorHoSwVerTable_oid[] = {VOR_ROOT, 2, 7, 2};
inline const oid vorHoSwVerAgentsVer_oid[] = {VOR_ROOT, 2, 7, 3, 0};

inline const oid vorHoGenericData_oid[] = {VOR_ROOT, 2, 8, 1, 0};
inline const oid vorHoCriticalSoftwareUpdateData_oid[] = {VOR_ROOT, 2, 8, 2, 0};

inline const oid vorHoMibStatusArray_oid[] = {VOR_ROOT, 2, 10, 1, 0};
inline const oid vorHoConfigChangedDate_oid[] = {VOR_ROOT, 2, 10, 2, 0};
inline const oid vorHoGUID_oid[] = {VOR_ROOT, 2, 10, 3, 0};
inline const oid vorHoCodeServer_oid[] = {VOR_ROOT, 2, 10, 4, 0};
inline const oid vorHoWebMgmtPort_oid[] = {VOR_ROOT, 2, 10, 5, 0};

inline const oid vorHoTrapFlags_oid[] = {VOR_ROOT, 2, 11, 1, 0};
inline const oid vorHoClientLastModified_oid[] = {VOR_ROOT, 2, 12, 1, 0};

inline const oid vorHoPhysicalMemorySize_oid[] = {VOR_ROOT, 2, 13, 1, 0};
inline const oid vorHoPhysicalMemoryFree_oid[] = {VOR_ROOT, 2, 13, 2, 0};
inline const oid vorHoPagingMemorySize_oid[] = {VOR_ROOT, 2, 13, 3, 0};
inline const oid vorHoPagingMemoryFree_oid[] = {VOR_ROOT, 2, 13, 4, 0};

inline const oid vorHoHWInfoPlatform_oid[] = {VOR_ROOT, 2, 15, 1, 0};

// The enterprise OID traps are sent under.
inline const oid enterprise_oid[] = {VOR_ENTERPRISE};
