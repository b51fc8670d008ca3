// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoFileSysTable.h"

#include "interface/KyOrblHostFs_interface.h"
#include "interface/fs_exclude.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "mib-extns/vorMeMibGroup.h"
#include "mib-extns/appl_name.h"

#define FS_TABLE_TOKEN "vorHoFileSysTable:initialize_table_vorHoFileSysTable"

// Pacing of the on-demand rebuild; prev_req_time is 0 until the first
// on-demand rebuild.
static time_t cur_time = 0;
static time_t prev_req_time = 0;

// With the timed refresh off, a walk brings the list up to date itself, at
// most every 10 seconds: each GETNEXT of a walk is a message of its
// own and must see the same rows.
static void rebuild_if_due(void) {
    if (g_osCommonPollFrequency == 0) {
        cur_time = table_clock_now();
        if (on_demand_rebuild_due(&prev_req_time, cur_time, FS_ON_DEMAND_MIN_INTERVAL)) {
            refresh_flist_CB();
        }
    }
}

void init_vorHoFileSysTable(void) {
    initialize_table_vorHoFileSysTable();
    // The operator's exclusions, from the daemon's configuration file.
    register_fs_exclude_directives(APPL_NAME);
}

void initialize_table_vorHoFileSysTable(void) {
    VOR_DEBUG(FS_TABLE_TOKEN, "<START>\n");
    TableIteratorSpec table{};
    table.name = "vorHoFileSysTable";
    table.handler = vorHoFileSysTable_handler;
    table.table_oid = vorHoFileSysTable_oid;
    table.oid_len = OID_LENGTH(vorHoFileSysTable_oid);
    table.max_column = FSYS_MAX_COLUMN;
    table.get_first = vorHoFileSysTable_get_first_data_point;
    table.get_next = vorHoFileSysTable_get_next_data_point;
    table.debug_token = FS_TABLE_TOKEN;
    table.registering = "Registering table vorHoFileSysTable as a table iterator\n";
    table.before_walk = rebuild_if_due;
    register_table_iterator(table); // a failed allocation leaves the table unserved
}

// The row's own index goes with the node.
static netsnmp_variable_list *hand_out(vorHost_fs_usage_t *node, void **my_loop_context,
                                       void **my_data_context,
                                       netsnmp_variable_list *put_index_data) {
    return hand_out_row(node, node->pFsUsage->index, my_loop_context, my_data_context,
                        put_index_data);
}

netsnmp_variable_list *vorHoFileSysTable_get_first_data_point(void **my_loop_context,
                                                              void **my_data_context,
                                                              netsnmp_variable_list *put_index_data,
                                                              netsnmp_iterator_info *mydata) {
    // A walk resumes at the row it left off, not at the head: the cost of
    // a request does not grow with the number of rows.
    vorHost_fs_usage_t *first = fs_row_from(table_walk_start(mydata));
    if (!first) {
        return nullptr;
    }
    return hand_out(first, my_loop_context, my_data_context, put_index_data);
}

netsnmp_variable_list *vorHoFileSysTable_get_next_data_point(void **my_loop_context,
                                                             void **my_data_context,
                                                             netsnmp_variable_list *put_index_data,
                                                             netsnmp_iterator_info *) {
    const auto *current = static_cast<vorHost_fs_usage_t *>(*my_loop_context);
    if (!current || !current->next) {
        return nullptr;
    }
    return hand_out(current->next, my_loop_context, my_data_context, put_index_data);
}

static void serve_column(netsnmp_request_info *request, unsigned int column, const fs_usage *fsp) {
    switch (column) {
    case FSYS_INDEX:
        set_integer_value(request, fsp->index);
        break;
    case FSYS_DESC:
        set_text_value(request, fsp->vorHoFileSysDesc);
        break;
    case FSYS_TOTAL_MB:
        set_integer_value(request, fsp->fsu_totalMB);
        break;
    case FSYS_USED_MB:
        set_integer_value(request, fsp->fsu_usedMB);
        break;
    case FSYS_PERCENT:
        set_integer_value(request, fs_served_percent(fsp));
        break;
    case FSYS_FILES:
        set_integer_value(request, fs_served_files(fsp));
        break;
    case FSYS_FILES_USED:
        set_integer_value(request, fs_served_files_used(fsp));
        break;
    default:
        snmp_log(LOG_ERR, "problem encountered in vorHoFileSysTable_handler: unknown column\n");
        break;
    }
}

int vorHoFileSysTable_handler(netsnmp_mib_handler *, netsnmp_handler_registration *,
                              netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_read_only_table<vorHost_fs_usage_t>(
        reqinfo, requests, "vorHoFileSysTable_handler",
        [](netsnmp_request_info *r, unsigned int column, const vorHost_fs_usage_t &row) {
            serve_column(r, column, row.pFsUsage);
        });
}
