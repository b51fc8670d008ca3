// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoSwVerTable.h"

#include <cstring>

#include "interface/sw_watch.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "mib-extns/sw_set_phases.h"
#include "mib-extns/vorMeMibGroup.h"
#include "mib-extns/appl_name.h"

#define SWVER_TABLE_TOKEN "vorHoSwVerTable:initialize_table_vorHoSwVerTable"

// Pacing of the on-demand rebuild; prev_req_time is 0 until the first
// on-demand rebuild.
static time_t cur_time = 0;
static time_t prev_req_time = 0;

// With the timed refresh off, a walk brings the inventory up to date itself, at
// most every 15 seconds: each GETNEXT of a walk is a message of its
// own and must see the same rows.
static void rebuild_if_due(void) {
    if (g_osCommonPollFrequency == 0) {
        cur_time = table_clock_now();
        if (on_demand_rebuild_due(&prev_req_time, cur_time, SWVER_ON_DEMAND_MIN_INTERVAL)) {
            refresh_SwverLoad_CB();
        }
    }
}

void init_vorHoSwVerTable(void) {
    initialize_table_vorHoSwVerTable();
    // The operator's watch list, from the daemon's configuration file.
    register_config_handler(APPL_NAME, SWVER_WATCH_TOKEN, parse_softwareWatch, free_softwareWatch,
                            SWVER_WATCH_HELP);
}

void initialize_table_vorHoSwVerTable(void) {
    TableIteratorSpec table{};
    table.name = "vorHoSwVerTable";
    table.handler = vorHoSwVerTable_handler;
    table.table_oid = vorHoSwVerTable_oid;
    table.oid_len = OID_LENGTH(vorHoSwVerTable_oid);
    table.max_column = SWVER_MAX_COLUMN;
    table.get_first = vorHoSwVerTable_get_first_data_point;
    table.get_next = vorHoSwVerTable_get_next_data_point;
    table.debug_token = SWVER_TABLE_TOKEN;
    table.registering = "Registering table vorHoSwVerTable as a table iterator\n";
    table.before_walk = rebuild_if_due;
    register_table_iterator(table); // a failed allocation leaves the table unserved
}

// The row's own index goes with the node.
static netsnmp_variable_list *hand_out(vorHo_Swver_t *node, void **my_loop_context,
                                       void **my_data_context,
                                       netsnmp_variable_list *put_index_data) {
    return hand_out_row(node, node->vorSwverEntry->index, my_loop_context, my_data_context,
                        put_index_data);
}

netsnmp_variable_list *vorHoSwVerTable_get_first_data_point(void **my_loop_context,
                                                            void **my_data_context,
                                                            netsnmp_variable_list *put_index_data,
                                                            netsnmp_iterator_info *mydata) {
    // The walk resumes at the row it asks for, not at the head.
    vorHo_Swver_t *first = swver_row_from(table_walk_start(mydata));
    if (!first) {
        return nullptr;
    }
    return hand_out(first, my_loop_context, my_data_context, put_index_data);
}

netsnmp_variable_list *vorHoSwVerTable_get_next_data_point(void **my_loop_context,
                                                           void **my_data_context,
                                                           netsnmp_variable_list *put_index_data,
                                                           netsnmp_iterator_info *) {
    const auto *current = static_cast<vorHo_Swver_t *>(*my_loop_context);
    if (!current || !current->next) {
        return nullptr;
    }
    return hand_out(current->next, my_loop_context, my_data_context, put_index_data);
}

static void serve_column(netsnmp_request_info *request, unsigned int column, int index) {
    char value[SWVER_VALUE_BUF] = {};
    if (column < SWVER_INDEX || column > SWVER_MAX_COLUMN ||
        !ReadSwverEntry(index, static_cast<int>(column), value)) {
        snmp_log(LOG_ERR, "prob occured in vorHoSwVerTable_handler: unknown column\n");
        return;
    }
    if (column <= SWVER_TYPE) {
        int32_t v;
        memcpy(&v, value, sizeof(v));
        set_integer_value(request, v);
    } else {
        set_text_value(request, value);
    }
}

static int check_column(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                        unsigned int column) {
    switch (column) {
    case SWVER_TYPE:
        return check_integer_range(reqinfo, request, 1, SWVER_TYPE_APPLICATION, nullptr, nullptr);
    case SWVER_NAME:
        // Marked on the request: through an AgentX master an unmarked
        // refusal reaches the manager as genErr.
        return refuse_request(reqinfo, request, SNMP_ERR_NOTWRITABLE);
    case SWVER_DESCRIPTION:
        return check_text_value(reqinfo, request, SWVER_DESC_MAX_LEN, SWVER_TABLE_TOKEN);
    case SWVER_LOCATION:
        return check_text_value(reqinfo, request, SWVER_LOC_MAX_LEN, SWVER_TABLE_TOKEN);
    default:
        return SNMP_ERR_NOERROR; // accepted, and changes nothing
    }
}

static bool is_writable(unsigned int column) {
    return column == SWVER_TYPE || column == SWVER_DESCRIPTION || column == SWVER_LOCATION;
}

// Applies one accepted SET to the live row with that index and records it
// under the package's name so that the next rebuild keeps it. Returns the
// setter's status.
static int apply_column(const netsnmp_variable_list *var, unsigned int column, int index,
                        const char *name) {
    int status;
    const void *edit;
    int32_t kind = 0;
    char text[SWVER_VALUE_BUF] = {};
    switch (column) {
    case SWVER_TYPE:
        kind = static_cast<int32_t>(*var->val.integer);
        status = set_swver_column_val_int(SWVER_TYPE, index, kind);
        edit = &kind;
        break;
    case SWVER_DESCRIPTION:
    case SWVER_LOCATION: {
        // The value carries no NUL; RESERVE1 has bounded its length.
        const size_t len = var->val_len < sizeof(text) ? var->val_len : sizeof(text) - 1;
        memcpy(text, var->val.string, len);
        status =
            set_swver_column_val_str(static_cast<int>(column), index, text, static_cast<int>(len));
        edit = text;
        break;
    }
    default:
        return SNMP_ERR_NOERROR;
    }
    if (status == SNMP_ERR_NOERROR) {
        UpdateAlteredList(name, edit, static_cast<int>(column));
    }
    return status;
}

int vorHoSwVerTable_handler(netsnmp_mib_handler *, netsnmp_handler_registration *,
                            netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    int result = SNMP_ERR_NOERROR;
    if (reqinfo->mode == MODE_SET_UNDO) {
        sw_set_undo_held(requests);
        return result;
    }
    for (netsnmp_request_info *request = requests; request; request = request->next) {
        if (request->processed) {
            continue;
        }
        // Only whether the iterator found a row is used: the node it kept
        // may have been freed by a rebuild between the phases of a SET,
        // which arrive as separate messages. The row is found again by its
        // index.
        if (!netsnmp_extract_iterator_context(request)) {
            netsnmp_set_request_error(reqinfo, request,
                                      reqinfo->mode == MODE_GET ? SNMP_NOSUCHINSTANCE
                                                                : SNMP_ERR_NOCREATION);
            continue;
        }
        const netsnmp_table_request_info *table_info = netsnmp_extract_table_info(request);
        if (!table_info || !table_info->indexes || !table_info->indexes->val.integer) {
            continue;
        }
        const int index = static_cast<int>(*table_info->indexes->val.integer);
        const unsigned int column = table_info->colnum;
        switch (reqinfo->mode) {
        case MODE_GET:
            serve_column(request, column, index);
            break;
        case MODE_SET_RESERVE1: {
            int status = check_column(reqinfo, request, column);
            if (status == SNMP_ERR_NOERROR && is_writable(column)) {
                status = sw_set_hold_row(reqinfo, request, index);
            }
            if (status != SNMP_ERR_NOERROR) {
                return status;
            }
            break;
        }
        case MODE_SET_ACTION:
            // The result is that of the last setter called; the other
            // columns call none and leave it as it is.
            if (is_writable(column)) {
                result = sw_set_apply_held(request, column, index, apply_column);
                if (result != SNMP_ERR_NOERROR) {
                    netsnmp_set_request_error(reqinfo, request, result);
                }
            }
            break;
        case MODE_SET_RESERVE2:
        case MODE_SET_COMMIT:
        case MODE_SET_FREE:
            break; // applied in ACTION
        default:
            snmp_log(LOG_ERR, "problem encountered in vorHoSwVerTable_handler: unsupported mode\n");
            break;
        }
    }
    return result;
}
