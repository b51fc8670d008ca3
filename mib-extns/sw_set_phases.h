// SPDX-License-Identifier: Apache-2.0
// Ours, beside the software version table: a writable column's SET carried
// across its phases, which the master sends as messages of their own and
// between which a rebuild may run. RESERVE1 holds the package the manager
// checked, ACTION edits that package or none (genErr when the index now
// holds another), and UNDO puts back what ACTION replaced.
#pragma once

#include "interface/net_snmp.h"

// RESERVE1 of a writable column that passed its checks: the row's package
// goes with the request to the later phases.
int sw_set_hold_row(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, int index);

// The table's own ACTION of one binding: the value into the live row with
// that index, recorded under the package's name; the setter's status.
typedef int (*sw_set_apply_fn)(const netsnmp_variable_list *var, unsigned int column, int index,
                               const char *name);
// ACTION: apply, when the index still holds the package RESERVE1 held,
// after saving what it replaces; genErr otherwise.
int sw_set_apply_held(const netsnmp_request_info *request, unsigned int column, int index,
                      sw_set_apply_fn apply);

// UNDO: puts back what ACTION changed, last binding first.
void sw_set_undo_held(netsnmp_request_info *requests);
