// SPDX-License-Identifier: Apache-2.0
// Access to the SMBIOS structure table, with the interface of the closed
// companion library the providers were written against. On Linux the table
// is the raw one the kernel exports in /sys/firmware/dmi/tables/DMI.
#pragma once

#include <cstdint>

typedef unsigned char BYTE;
typedef uint16_t WORD;
typedef void *PVOID;

#pragma pack(push, 1)
typedef struct {
    BYTE byType;
    BYTE byLength;
    WORD wHandle;
} SMBIOS_HEADER;

// Type 1, System Information.
typedef struct {
    SMBIOS_HEADER Header;
    BYTE byManufacturer;
    BYTE byProductName;
    BYTE byVersion;
    BYTE bySerialNumber;
    BYTE sUUID[16];
    BYTE byWakeupType;
} SMBIOS_SYSTEM_INFORMATION;
#pragma pack(pop)

// Loads (again) the structure table; the result is not examined by callers.
int InitSMBIOS(void);
// Non-zero when a structure table was loaded.
int IsSMBIOSAvailable(void);
// Sets *record to the copy-th (from 0) structure of the type and returns 1;
// returns 0 when there is none. The structure stays owned by this layer and
// its formatted area is whole: byLength bytes are readable at *record.
int SmbGetRecordByType(BYTE type, WORD copy, PVOID *record);
