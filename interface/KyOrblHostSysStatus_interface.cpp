// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostSysStatus_interface.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "interface/KyOrblNetSnmp_helpers.h"
#include "interface/debug.h"
#include "platform/smbios.h"

misc_t *misc = nullptr;
long ipoll_time = 10;
trap_flag_t *g_ptrap_flag_st = nullptr;

static int mib_state = 0;

const int mibno[] = {1, 2, 3, 6, 8, 10, 11, 18, -1};
const int order[] = {3, 1, 2, -1}; // condition, major revision, minor revision

static const int REV_MAJOR = 7;
static const int REV_MINOR = 40;
static const int WEB_MGMT_PORT = 2381;
static const char DEFAULT_GENERIC_DATA[] = "generic trap data";

static local_query_fn s_query = snmp_check_oid_exists;
static oid s_enterprise[MAX_OID_LEN];
static size_t s_enterprise_len = 0;
// Set while a rebuild runs: its queries pass through the master, which may
// hand this daemon another request (a GET of the web-management port) that
// would start a rebuild inside the rebuild, without limit.
static bool s_rebuilding = false;
// Set once the unanswered queries have been reported; cleared again by a
// rebuild that completes, so a later outage is reported again.
static bool s_timeout_reported = false;

void set_local_query_function(local_query_fn fn) {
    s_query = fn ? fn : snmp_check_oid_exists;
}

void set_mib_status_enterprise(const oid *enterprise, size_t len) {
    // Room for the four sub-identifiers of a MIB's object.
    if (!enterprise || len + 4 > MAX_OID_LEN) {
        s_enterprise_len = 0;
        return;
    }
    memcpy(s_enterprise, enterprise, len * sizeof(oid));
    s_enterprise_len = len;
}

int do_init(void) {
    if (misc) {
        return 0;
    }
    misc_t *rec = static_cast<misc_t *>(calloc(1, sizeof(misc_t)));
    if (!rec) {
        return -1;
    }
    rec->rev_major = REV_MAJOR;
    rec->rev_minor = REV_MINOR;
    rec->mib_state = 1;
    mib_state = 1;
    rec->poll_freq = ipoll_time;
    strncpy(rec->generic_data, DEFAULT_GENERIC_DATA, sizeof(rec->generic_data) - 1);

    time_t now = time(nullptr);
    size_t date_len = 0;
    const u_char *date = date_n_time(&now, &date_len);
    if (date) {
        memcpy(rec->client_date, date,
               date_len < sizeof(rec->client_date) ? date_len : sizeof(rec->client_date));
    }
    rec->trap_flags = 0;
    rec->client_last_mod_date[0] = 0xFF;
    rec->client_last_mod_date[1] = 0xFF;

    // The UUID's octets as they are: the GUID ends at its first zero octet.
    u_char uuid[16];
    if (get_uuid(uuid)) {
        memcpy(rec->ho_guid, uuid, sizeof(uuid));
    }
    rec->webmgmt_port = WEB_MGMT_PORT;
    rec->code_server = 0;
    misc = rec;
    return 0;
}

int do_misc(void) {
    do_init();
    if (!misc) {
        return -1;
    }
    misc->poll_freq = ipoll_time;
    record_mib_status_array(reinterpret_cast<char *>(misc->mib_array));
    return 0;
}

void refresh_misc(void) {
    VOR_DEBUG("vorsysStatus", "refresh_misc() \n");
    do_misc();
}

void erase_sysstat_info(void) {
    free(misc);
    misc = nullptr;
}

int set_mib_state(void) {
    if (!misc) {
        return 0;
    }
    misc->mib_state = mib_state;
    return 1;
}

static void report_unanswered_queries(void) {
    if (s_timeout_reported) {
        return;
    }
    s_timeout_reported = true;
    if (local_query_uses_v3()) {
        const char *user = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SECNAME);
        snmp_log(LOG_ERR,
                 "Local SNMP queries to the master agent get no answer, so the MIB status array "
                 "is not updated: the master is not running or refuses the SNMPv3 user \"%s\". "
                 "Check the defSecurityName, defSecurityLevel, defAuthType, defAuthPassphrase, "
                 "defPrivType and defPrivPassphrase lines against the master's createUser and "
                 "rouser lines.\n",
                 user ? user : "");
        return;
    }
    const char *community = get_local_query_community();
    snmp_log(LOG_ERR,
             "Local SNMP queries to the master agent get no answer, so the MIB status array is "
             "not updated: the master is not running or drops the community \"%s\". Grant it "
             "read access for 127.0.0.1 in the master's snmpd.conf (for example \"rocommunity %s "
             "127.0.0.1\"), or start with -c and a community the master knows.\n",
             community, community);
}

void record_mib_status_array(char *mib_array) {
    if (!mib_array || s_rebuilding) {
        return;
    }
    struct RebuildGuard {
        RebuildGuard() { s_rebuilding = true; }
        ~RebuildGuard() { s_rebuilding = false; }
    } guard;

    u_char *a = reinterpret_cast<u_char *>(mib_array);
    a[0] = 1;
    a[2] = 8;
    a[3] = 0;
    // Compared on full values: a condition of 256 outranks one of 2 even
    // though its octet reads 0.
    unsigned long overall = 0;
    bool stopped = s_enterprise_len == 0;

    oid name[MAX_OID_LEN];
    memcpy(name, s_enterprise, s_enterprise_len * sizeof(oid));
    const size_t name_len = s_enterprise_len + 4;
    for (int i = 0; !stopped && mibno[i] != -1; ++i) {
        const int m = mibno[i];
        if (4 * m + 3 >= MIB_ARRAY_SIZE) {
            continue;
        }
        for (int j = 0; order[j] != -1; ++j) {
            name[s_enterprise_len] = static_cast<oid>(m);
            name[s_enterprise_len + 1] = 1;
            name[s_enterprise_len + 2] = static_cast<oid>(order[j]);
            name[s_enterprise_len + 3] = 0;
            long value = 0;
            const int result = s_query(name, name_len, &value);
            if (result == LOCAL_QUERY_TIMED_OUT || result == LOCAL_QUERY_NOT_READY) {
                // The master drops our requests (or is gone): every further
                // query would wait as long, while no request is served.
                if (result == LOCAL_QUERY_TIMED_OUT) {
                    report_unanswered_queries();
                }
                stopped = true;
                break;
            }
            if (result != LOCAL_QUERY_ANSWERED) {
                continue;
            }
            a[4 * m + 1 + j] = static_cast<u_char>(value & 0xFF);
            if (j == 0) {
                a[4 * m] = 1;
                if (static_cast<unsigned long>(value) > overall) {
                    overall = static_cast<unsigned long>(value);
                }
            }
        }
    }
    set_mib_state();
    if (!stopped) {
        s_timeout_reported = false;
    }
    // Also after a rebuild that stopped: what answered now and the agent's
    // own state, never the condition of an earlier rebuild.
    if (static_cast<unsigned long>(mib_state) > overall) {
        overall = static_cast<unsigned long>(mib_state);
    }
    a[1] = static_cast<u_char>(overall & 0xFF);
}

int get_uuid(u_char *retBuf) {
    InitSMBIOS();
    if (!IsSMBIOSAvailable()) {
        return 0;
    }
    PVOID rec = nullptr;
    if (SmbGetRecordByType(1, 0, &rec) != 1 || !rec) {
        return 0;
    }
    memcpy(retBuf, static_cast<SMBIOS_SYSTEM_INFORMATION *>(rec)->sUUID, 16);
    return 1;
}

char *get_mib_array(void) {
    return misc ? reinterpret_cast<char *>(misc->mib_array) : nullptr;
}
char *get_config_change_date(void) {
    return misc ? misc->client_date : nullptr;
}
char *getGuid(void) {
    return misc ? reinterpret_cast<char *>(misc->ho_guid) : nullptr;
}
int getCodeSever(void) {
    return misc ? misc->code_server : 0;
}
int get_web_mgmt_port(void) {
    return misc ? misc->webmgmt_port : 0;
}
char *get_client_change_date(void) {
    return misc ? reinterpret_cast<char *>(misc->client_last_mod_date) : nullptr;
}
char *get_generic_data(void) {
    return misc ? misc->generic_data : nullptr;
}
char *get_crit_data(void) {
    return misc ? misc->crit_data : nullptr;
}
int get_mib_rev_major(void) {
    return misc ? misc->rev_major : 0;
}
int get_mib_rev_minor(void) {
    return misc ? misc->rev_minor : 0;
}
int get_mib_rev_state(void) {
    return misc ? misc->mib_state : 0;
}
int get_poll_freq(void) {
    return misc ? static_cast<int>(misc->poll_freq) : 0;
}
int get_next_index(void) {
    return misc ? misc->next_index : 0;
}

int get_trap_flags(void) {
    static trap_flag_t flags;
    static_assert(sizeof(trap_flag_t) == sizeof(uint32_t), "trap flags are one 32-bit word");
    g_ptrap_flag_st = &flags;
    memset(g_ptrap_flag_st, 0, sizeof(*g_ptrap_flag_st));
    g_ptrap_flag_st->agent_Type = 0;
    g_ptrap_flag_st->iPAddrType = 0;
    g_ptrap_flag_st->trapCondn = 0;
    g_ptrap_flag_st->reserved = 0;
    if (!misc) {
        return 0;
    }
    misc->trap_flags = pack_trap_flags(g_ptrap_flag_st);
    return misc->trap_flags;
}

int pack_trap_flags(const trap_flag_t *flags) {
    uint32_t word = 0;
    memcpy(&word, flags, sizeof(word));
    return static_cast<int>(word);
}

static void copy_text(char *field, size_t field_size, const char *text, size_t len) {
    if (!misc || !text) {
        return;
    }
    memset(field, 0, field_size);
    memcpy(field, text, strnlen(text, len < field_size - 1 ? len : field_size - 1));
}

void set_generic_data(const char *pGenericData, size_t len) {
    if (misc) {
        copy_text(misc->generic_data, sizeof(misc->generic_data), pGenericData, len);
    }
}

void set_crit_data(const char *pCritData, size_t len) {
    if (misc) {
        copy_text(misc->crit_data, sizeof(misc->crit_data), pCritData, len);
    }
}

void set_guid_str(const char *pguid, int length) {
    if (!misc || !pguid) {
        return;
    }
    memset(misc->ho_guid, 0, sizeof(misc->ho_guid));
    size_t n = length > 0 ? static_cast<size_t>(length) : 0;
    memcpy(misc->ho_guid, pguid, n < sizeof(misc->ho_guid) ? n : sizeof(misc->ho_guid));
}
