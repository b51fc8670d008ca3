// SPDX-License-Identifier: Apache-2.0
// System status store: the one record behind the status, client,
// trap-information and miscellaneous scalars, with the host GUID taken from
// SMBIOS and the MIB status array rebuilt from local SNMP queries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

#include "interface/net_snmp.h"

#define GENERIC_DATA_SIZE 255 // 254 characters and the NUL
#define CRIT_DATA_SIZE 512    // 511 characters and the NUL
#define CLIENT_DATE_SIZE 14
#define MIB_ARRAY_SIZE 256
#define HO_GUID_SIZE 17

typedef struct _misc_t {
    int rev_major;
    int rev_minor;
    int mib_state;
    long poll_freq;
    int next_index;
    char generic_data[GENERIC_DATA_SIZE];
    char crit_data[CRIT_DATA_SIZE];
    char client_date[CLIENT_DATE_SIZE]; // DateAndTime of the record's creation
    u_char mib_array[MIB_ARRAY_SIZE];
    int trap_flags;
    u_char ho_guid[HO_GUID_SIZE]; // the octets before the first zero octet
    int code_server;
    int webmgmt_port;
    u_char client_last_mod_date[CLIENT_DATE_SIZE];
} misc_t;

// The packed trap flags, least significant bit first.
typedef struct {
    uint32_t agent_Type : 1;
    uint32_t iPAddrType : 1;
    uint32_t trapCondn : 3;
    uint32_t reserved : 27;
} trap_flag_t;

extern misc_t *misc;    // null until do_init has created the record
extern long ipoll_time; // 10: copied into poll_freq on every refresh
extern trap_flag_t *g_ptrap_flag_st;

// Life cycle.
int do_init(void); // 0, or -1 when the record cannot be allocated
int do_misc(void); // creates the record if needed and rebuilds the status array
void refresh_misc(void);
void erase_sysstat_info(void); // after the final persistent store, which reads the GUID
int set_mib_state(void);

// Rebuilds the 256-octet array mib_array points to. A rebuild that starts
// while another is running (a request handled during the other's queries)
// does nothing, and one stops at its first query that times out or finds
// the configuration unread; both keep the entries the array had. The
// overall condition comes from the answers of the rebuild that ran.
void record_mib_status_array(char *mib_array);
// 1 and 16 octets in retBuf when SMBIOS has a System Information UUID.
int get_uuid(u_char *retBuf);

// The status array's queries go to this function; the default is
// snmp_check_oid_exists. Null restores the default. A test seam.
typedef int (*local_query_fn)(const oid *oidstr, size_t oid_len, long *value);
void set_local_query_function(local_query_fn fn);
// The enterprise whose MIBs the status array reports (1.3.6.1.4.1.32473);
// nothing is queried until it is set. At most 64 sub-identifiers.
void set_mib_status_enterprise(const oid *enterprise, size_t len);

// The MIB numbers queried, and the objects in each, both ended by -1.
extern const int mibno[];
extern const int order[];

// Accessors: 0 or null while there is no record.
char *get_mib_array(void);
char *get_config_change_date(void);
char *getGuid(void);
int getCodeSever(void);
int get_web_mgmt_port(void);
char *get_client_change_date(void);
char *get_generic_data(void);
char *get_crit_data(void);
int get_mib_rev_major(void);
int get_mib_rev_minor(void);
int get_mib_rev_state(void);
int get_poll_freq(void);
int get_next_index(void);
int get_trap_flags(void);

// Setters: nothing while there is no record or for a null text. len bounds
// what is read of the text (a SET's value carries no NUL).
void set_generic_data(const char *pGenericData, size_t len = SIZE_MAX);
void set_crit_data(const char *pCritData, size_t len = SIZE_MAX);
void set_guid_str(const char *pguid, int length);

// The flags as the 32-bit word they occupy (agent_Type in bit 0).
int pack_trap_flags(const trap_flag_t *flags);
