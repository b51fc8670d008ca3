// Enterprise traps: composed from the host name, the trap flags and a
// description, and sent from a deferred alarm after the SET that asked for
// them has been answered.
#pragma once

#include "interface/net_snmp.h"

#define TRAP_GENERIC_DATA_SET 11003
#define TRAP_CRIT_DATA_SET 11014
#define TRAP_SEND_DELAY_SECONDS 2

extern int g_do_trap; // owned by the daemon: 0 after -T, no trap is sent

// Copies the text and the number into a pending send and arms a 2-second
// one-shot alarm for it. Returns the alarm's id, 0 when none was armed.
int trigger_immediate_trap_send(const char *trap_data, int trapno);
void trigger_immediate_trap_send_CB(unsigned int clientreg, void *clientarg);
int PostGenericTrap(const char *trapDesc);
int FillCommonInfo(netsnmp_variable_list *&varlist);
void getsysname(char *hostname);
int PostTrap(netsnmp_variable_list *varlist, int specific);

// What hands the composed trap to the library; the default is
// send_enterprise_trap_vars. Null restores the default. A test seam.
typedef void (*trap_sender_fn)(int trap, int specific, const oid *enterprise, int enterprise_length,
                               netsnmp_variable_list *vars);
void set_trap_sender(trap_sender_fn fn);
