// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/vorHoCpuUtilTable.h"

#include "interface/KyOrblHostCpu_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"

#define CPU_TABLE_TOKEN "vorHoCpuUtilTable:initialize_table_vorHoCpuUtilTable"
#define CPU_FIRST_TOKEN "vorHoCpuUtilTable_get_first"
#define CPU_NEXT_TOKEN "vorHoCpuUtilTable_get_next"

void init_vorHoCpuUtilTable(void) {
    initialize_table_vorHoCpuUtilTable();
    initCpuUtilTable(); // a failure is logged there and leaves the table empty
}

void initialize_table_vorHoCpuUtilTable(void) {
    VOR_DEBUG(CPU_TABLE_TOKEN, "<START>\n");
    TableIteratorSpec table{};
    table.name = "vorHoCpuUtilTable";
    table.handler = vorHoCpuUtilTable_handler;
    table.table_oid = vorHoCpuUtilTable_oid;
    table.oid_len = OID_LENGTH(vorHoCpuUtilTable_oid);
    table.max_column = CPU_UTIL_MAX_COLUMN;
    table.get_first = vorHoCpuUtilTable_get_first_data_point;
    table.get_next = vorHoCpuUtilTable_get_next_data_point;
    table.debug_token = CPU_TABLE_TOKEN;
    table.registering = "Registering table vorHoCpuUtilTable as a table iterator\n";
    if (!register_table_iterator(table)) {
        snmp_log(LOG_ERR,
                 "problem encountered in initialize_table_vorHoCpuUtilTable: Mem alloc failed\n");
        VOR_DEBUG(CPU_TABLE_TOKEN, "malloc failed in netsnmp_create_handler_registration \n");
    }
}

// The row's own index goes with the node.
static netsnmp_variable_list *hand_out(vorHostOs_Cpu_Util_t *node, void **my_loop_context,
                                       void **my_data_context,
                                       netsnmp_variable_list *put_index_data) {
    return hand_out_row(node, node->vorCpu.index, my_loop_context, my_data_context, put_index_data);
}

netsnmp_variable_list *vorHoCpuUtilTable_get_first_data_point(void **my_loop_context,
                                                              void **my_data_context,
                                                              netsnmp_variable_list *put_index_data,
                                                              netsnmp_iterator_info *mydata) {
    if (!CpuUtilList) {
        VOR_DEBUG(CPU_FIRST_TOKEN, "Returned null index as empty table\n");
        return nullptr;
    }
    // The walk resumes at the row it asks for, not at the head.
    vorHostOs_Cpu_Util_t *first = cpu_row_from(table_walk_start(mydata));
    if (!first) {
        return nullptr;
    }
    VOR_DEBUG(CPU_FIRST_TOKEN, "Returned index \n");
    return hand_out(first, my_loop_context, my_data_context, put_index_data);
}

netsnmp_variable_list *vorHoCpuUtilTable_get_next_data_point(void **my_loop_context,
                                                             void **my_data_context,
                                                             netsnmp_variable_list *put_index_data,
                                                             netsnmp_iterator_info *) {
    const auto *current = static_cast<vorHostOs_Cpu_Util_t *>(*my_loop_context);
    if (!current) {
        VOR_DEBUG(CPU_NEXT_TOKEN, "Returned null index as Next node empty\n");
        return nullptr;
    }
    if (!current->next) {
        VOR_DEBUG(CPU_NEXT_TOKEN, "Returned null index as empty table\n");
        return nullptr;
    }
    return hand_out(current->next, my_loop_context, my_data_context, put_index_data);
}

static void serve_column(netsnmp_request_info *request, unsigned int column,
                         const vorHoCpuUtilEntry_type &cpu) {
    switch (column) {
    case CPU_UTIL_INDEX:
        set_integer_value(request, cpu.index);
        break;
    case CPU_UTIL_1MIN:
        set_integer_value(request, cpu.cpu_1min);
        break;
    case CPU_UTIL_5MIN:
        set_integer_value(request, cpu.cpu_5min);
        break;
    case CPU_UTIL_30MIN:
        set_integer_value(request, cpu.cpu_30min);
        break;
    case CPU_UTIL_60MIN:
        set_integer_value(request, cpu.cpu_60min);
        break;
    case CPU_UTIL_HW_LOCATION:
        set_text_value(request, cpu.cpu_hwLocation);
        break;
    default:
        snmp_log(LOG_ERR, "problem encountered in vorHoCpuUtilTable_handler: unknown column\n");
        break;
    }
}

int vorHoCpuUtilTable_handler(netsnmp_mib_handler *, netsnmp_handler_registration *,
                              netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    return serve_read_only_table<vorHostOs_Cpu_Util_t>(
        reqinfo, requests, "vorHoCpuUtilTable_handler",
        [](netsnmp_request_info *r, unsigned int column, const vorHostOs_Cpu_Util_t &row) {
            serve_column(r, column, row.vorCpu);
        });
}
