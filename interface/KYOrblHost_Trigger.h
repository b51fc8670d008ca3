// SPDX-License-Identifier: Apache-2.0
// Enterprise traps: composed from the host name, the trap flags and a
// description, and sent from a deferred alarm after the SET that asked for
// them has been answered.
#pragma once

#include "interface/net_snmp.h"

#define TRAP_GENERIC_DATA_SET 11003
#define TRAP_CRIT_DATA_SET 11014
#define TRAP_SEND_DELAY_SECONDS 2

extern int g_do_trap; // owned by the daemon: 0 after -T, no trap is sent

// The OIDs a trap is sent under and carries, in binding order. The MIB
// layer, which owns every OID, hands them down before a trap can be asked
// for; until then no trap is sent.
struct TrapOids {
    const oid *enterprise;
    size_t enterprise_len;
    const oid *name; // the host name
    size_t name_len;
    const oid *flags; // the trap flags
    size_t flags_len;
    const oid *text; // the description
    size_t text_len;
};
void set_trap_oids(const TrapOids &oids);

// Copies the text and the number into a pending send and arms a 2-second
// one-shot alarm for it. Returns the alarm's id, 0 when none was armed.
int trigger_immediate_trap_send(const char *trap_data, int trapno);
void trigger_immediate_trap_send_CB(unsigned int clientreg, void *clientarg);
// Sends every trap still waiting for its alarm, at once, oldest first: a
// stop must not lose the trap of a SET it has already answered.
void flush_pending_traps(void);
int PostGenericTrap(const char *trapDesc);
int FillCommonInfo(netsnmp_variable_list *&varlist);
void getsysname(char *hostname);
int PostTrap(netsnmp_variable_list *varlist, int specific);

// What hands the composed trap to the library; the default is
// send_enterprise_trap_vars. Null restores the default. A test seam.
typedef void (*trap_sender_fn)(int trap, int specific, const oid *enterprise, int enterprise_length,
                               netsnmp_variable_list *vars);
void set_trap_sender(trap_sender_fn fn);
