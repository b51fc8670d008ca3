// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/sw_set_phases.h"

#include <cstdlib>
#include <cstring>

#include "interface/sw_edit_undo.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/mib_registration.h"

namespace {

// What goes with a request between its phases: the package RESERVE1
// checked, and what ACTION replaced, for UNDO.
#define SWVER_EDIT_DATA "vorHoSwVerEdit"
struct PendingEdit {
    char name[SWVER_VALUE_BUF];
    int applied;
    swver_edit_undo undo;
};

} // namespace

int sw_set_hold_row(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, int index) {
    auto *edit = static_cast<PendingEdit *>(calloc(1, sizeof(PendingEdit)));
    if (!edit) {
        return refuse_request(reqinfo, request, SNMP_ERR_RESOURCEUNAVAILABLE);
    }
    ReadSwverEntry(index, SWVER_NAME, edit->name);
    netsnmp_request_add_list_data(request, netsnmp_create_data_list(SWVER_EDIT_DATA, edit, free));
    return SNMP_ERR_NOERROR;
}

// A rebuild since RESERVE1 may have given the index to another package.
// The SET then fails (genErr, as when the row is gone) rather than edit a
// package the manager did not check; the master undoes the rest.
int sw_set_apply_held(const netsnmp_request_info *request, unsigned int column, int index,
                      sw_set_apply_fn apply) {
    auto *edit = static_cast<PendingEdit *>(netsnmp_request_get_list_data(
        const_cast<netsnmp_request_info *>(request), SWVER_EDIT_DATA));
    char name[SWVER_VALUE_BUF] = {};
    if (!edit || !edit->name[0] || ReadSwverEntry(index, SWVER_NAME, name) != 1 ||
        strcmp(name, edit->name) != 0) {
        return SNMP_ERR_GENERR;
    }
    save_swver_edit(edit->name, static_cast<int>(column), &edit->undo);
    const int status = apply(request->requestvb, column, index, edit->name);
    edit->applied = status == SNMP_ERR_NOERROR;
    return status;
}

// Last edit first, so that two edits of one field end with the value
// before both.
void sw_set_undo_held(netsnmp_request_info *requests) {
    netsnmp_request_info *last = requests;
    while (last && last->next) {
        last = last->next;
    }
    for (netsnmp_request_info *request = last; request; request = request->prev) {
        auto *edit =
            static_cast<PendingEdit *>(netsnmp_request_get_list_data(request, SWVER_EDIT_DATA));
        if (edit && edit->applied) {
            undo_swver_edit(edit->name, &edit->undo);
            edit->applied = 0;
        }
        if (request == requests) {
            break;
        }
    }
}
