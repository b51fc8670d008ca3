// SPDX-License-Identifier: Apache-2.0
#include "mib-extns/mib_registration.h"

#include "mib-extns/appl_name.h"

#include <cstdint>
#include <cstring>

static void register_scalar(const char *name, Netsnmp_Node_Handler *handler, const oid *reg_oid,
                            size_t oid_len, int modes) {
    netsnmp_handler_registration *reg =
        netsnmp_create_handler_registration(name, handler, reg_oid, oid_len, modes);
    if (!reg) {
        return;
    }
    if (modes == HANDLER_CAN_RONLY) {
        netsnmp_register_read_only_instance(reg);
    } else {
        netsnmp_register_instance(reg);
    }
}

void register_ro_scalar(const char *name, Netsnmp_Node_Handler *handler, const oid *reg_oid,
                        size_t oid_len) {
    register_scalar(name, handler, reg_oid, oid_len, HANDLER_CAN_RONLY);
}

void register_rw_scalar(const char *name, Netsnmp_Node_Handler *handler, const oid *reg_oid,
                        size_t oid_len) {
    register_scalar(name, handler, reg_oid, oid_len, HANDLER_CAN_RWRITE);
}

namespace {

// Where the iterator's first pass over a table should begin: the lowest
// index any request of the message names. Shared by the handler below and
// the table's first-row callback (through the iterator's myvoid).
struct WalkStart {
    oid index;
    void (*before_walk)(void);
    // The message last seen, so that a GETBULK's repetitions, which run the
    // handlers again within one message, rebuild nothing in between.
    const void *session;
    long reqid;
    long transid;
};

// True once per message, for the modes in which the iterator walks rows.
bool first_walk_of_message(WalkStart *start, const netsnmp_agent_request_info *reqinfo) {
    switch (reqinfo->mode) {
    case MODE_GET:
    case MODE_GETNEXT:
    case MODE_GETBULK:
    case MODE_SET_RESERVE1:
        break;
    default:
        return false;
    }
    const netsnmp_pdu *pdu = reqinfo->asp ? reqinfo->asp->pdu : nullptr;
    if (!pdu) {
        return true; // no message to tell apart: every call is one
    }
    if (start->session == reqinfo->asp && start->reqid == pdu->reqid &&
        start->transid == pdu->transid) {
        return false;
    }
    start->session = reqinfo->asp;
    start->reqid = pdu->reqid;
    start->transid = pdu->transid;
    return true;
}

// Runs between the table helper, which has parsed each request's index,
// and the iterator, whose first-row callback then starts at that index
// instead of the first row. A request with no index starts at the head.
int note_walk_start(netsnmp_mib_handler *handler, netsnmp_handler_registration *reginfo,
                    netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests) {
    auto *start = static_cast<WalkStart *>(handler->myvoid);
    // Rebuilt here, before the iterator runs, never between its passes: a
    // request answered in the first pass keeps its row until the handler
    // has served it.
    if (start->before_walk && first_walk_of_message(start, reqinfo)) {
        start->before_walk();
    }
    oid lowest = ~static_cast<oid>(0);
    for (netsnmp_request_info *r = requests; r; r = r->next) {
        if (r->processed) {
            continue;
        }
        const netsnmp_table_request_info *info = netsnmp_extract_table_info(r);
        const oid named = info && info->index_oid_len > 0 ? info->index_oid[0] : 0;
        lowest = named < lowest ? named : lowest;
    }
    start->index = lowest == ~static_cast<oid>(0) ? 0 : lowest;
    return netsnmp_call_next_handler(handler, reginfo, reqinfo, requests);
}

} // namespace

netsnmp_variable_list *hand_out_row(void *node, int32_t index, void **my_loop_context,
                                    void **my_data_context, netsnmp_variable_list *put_index_data) {
    *my_loop_context = node;
    *my_data_context = node;
    snmp_set_var_value(put_index_data, &index, sizeof(index));
    return put_index_data;
}

oid table_walk_start(netsnmp_iterator_info *iinfo) {
    auto *start = static_cast<WalkStart *>(iinfo ? iinfo->myvoid : nullptr);
    if (!start) {
        return 0;
    }
    // Only the first pass of a message may skip rows: a later pass looks
    // for the next column, whose first row is the table's first.
    const oid index = start->index;
    start->index = 0;
    return index;
}

bool register_table_iterator(const TableIteratorSpec &table) {
    netsnmp_table_registration_info *table_info =
        SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_iterator_info *iinfo = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
    netsnmp_handler_registration *reg = netsnmp_create_handler_registration(
        table.name, table.handler, table.table_oid, table.oid_len, HANDLER_CAN_RWRITE);
    auto *start = static_cast<WalkStart *>(calloc(1, sizeof(WalkStart)));
    netsnmp_mib_handler *start_handler = netsnmp_create_handler("vorWalkStart", note_walk_start);
    if (!table_info || !iinfo || !reg || !start || !start_handler) {
        SNMP_FREE(table_info);
        SNMP_FREE(iinfo);
        free(start);
        if (reg) {
            netsnmp_handler_registration_free(reg);
        }
        if (start_handler) {
            netsnmp_handler_free(start_handler);
        }
        return false;
    }
    netsnmp_table_helper_add_indexes(table_info, ASN_INTEGER, 0);
    table_info->min_column = 1;
    table_info->max_column = table.max_column;
    iinfo->get_first_data_point = table.get_first;
    iinfo->get_next_data_point = table.get_next;
    iinfo->table_reginfo = table_info;
    // Rows are handed out in ascending index order: the iterator may stop
    // at the first row past a GETNEXT's index instead of trying them all.
    iinfo->flags |= NETSNMP_ITERATOR_FLAG_SORTED;
    iinfo->myvoid = start;
    start->before_walk = table.before_walk;
    start_handler->myvoid = start;
    start_handler->data_free = free;
    VOR_DEBUG(table.debug_token, "%s", table.registering);
    if (netsnmp_register_table_iterator(reg, iinfo) == MIB_REGISTERED_OK) {
        netsnmp_inject_handler_before(reg, start_handler, TABLE_ITERATOR_NAME);
    } else {
        netsnmp_handler_free(start_handler);
    }
    return true;
}

void set_integer_value(netsnmp_request_info *request, long value) {
    int32_t v = static_cast<int32_t>(value);
    snmp_set_var_typed_value(request->requestvb, ASN_INTEGER, &v, sizeof(v));
}

void set_text_value(netsnmp_request_info *request, const char *text) {
    if (!text) {
        text = "";
    }
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, text, strlen(text));
}

int refuse_request(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, int status) {
    netsnmp_set_request_error(reqinfo, request, status);
    return status;
}

int check_text_value(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                     size_t max_len, const char *token) {
    const netsnmp_variable_list *var = request->requestvb;
    if (var->type != ASN_OCTET_STR) {
        VOR_DEBUG(token, "%x not octet string type", var->type);
        return refuse_request(reqinfo, request, SNMP_ERR_WRONGTYPE);
    }
    if (var->val_len > max_len) {
        VOR_DEBUG(token, "Invalid Length String");
        return refuse_request(reqinfo, request, SNMP_ERR_WRONGLENGTH);
    }
    return SNMP_ERR_NOERROR;
}

// The library's reader of the persistent file skips the blanks before a
// value and cuts those after it, takes a value that begins with '#' for a
// comment, and the writer ends a value at a NUL: such a text would come
// back changed (or as the default) after a restart.
static bool survives_the_file(const char *text, size_t len) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
    if (len == 0) {
        return true;
    }
    return !blank(text[0]) && !blank(text[len - 1]) && text[0] != '#' && !memchr(text, '\0', len);
}

int check_stored_text(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                      size_t min_len, size_t max_len, const char *token) {
    const netsnmp_variable_list *var = request->requestvb;
    if (var->type != ASN_OCTET_STR) {
        if (token) {
            VOR_DEBUG(token, "%x not octet string type", var->type);
        }
        return refuse_request(reqinfo, request, SNMP_ERR_WRONGTYPE);
    }
    if (var->val_len < min_len || var->val_len > max_len) {
        if (token) {
            VOR_DEBUG(token, "Invalid Length String");
        }
        return refuse_request(reqinfo, request, SNMP_ERR_WRONGLENGTH);
    }
    if (var->val_len > 0 && (memchr(var->val.string, '\n', var->val_len) ||
                             memchr(var->val.string, '\r', var->val_len))) {
        if (token) {
            VOR_DEBUG(token, "line end in a stored text");
        }
        return refuse_request(reqinfo, request, SNMP_ERR_BADVALUE);
    }
    if (!survives_the_file(reinterpret_cast<const char *>(var->val.string), var->val_len)) {
        if (token) {
            VOR_DEBUG(token, "a stored text would not be read back as it is");
        }
        return refuse_request(reqinfo, request, SNMP_ERR_BADVALUE);
    }
    return SNMP_ERR_NOERROR;
}

size_t length_before_line_end(const char *text) {
    return text ? strcspn(text, "\r\n") : 0;
}

int check_integer_range(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                        long min, long max, const char *token, const char *bad_value_message) {
    const netsnmp_variable_list *var = request->requestvb;
    if (var->type != ASN_INTEGER) {
        if (token) {
            VOR_DEBUG(token, "%x not int type", var->type);
        }
        return refuse_request(reqinfo, request, SNMP_ERR_WRONGTYPE);
    }
    const long value = *var->val.integer;
    if (value < min || value > max) {
        if (token) {
            VOR_DEBUG(token, "%s", bad_value_message);
        }
        return refuse_request(reqinfo, request, SNMP_ERR_BADVALUE);
    }
    return SNMP_ERR_NOERROR;
}

static time_t (*s_table_clock)(void) = nullptr;

time_t table_clock_now(void) {
    return s_table_clock ? s_table_clock() : time(nullptr);
}

void set_table_clock(time_t (*now)(void)) {
    s_table_clock = now;
}

bool on_demand_rebuild_due(time_t *prev_req_time, time_t cur_time, int min_interval) {
    if (*prev_req_time != 0 && cur_time >= *prev_req_time &&
        cur_time - *prev_req_time < min_interval) {
        return false;
    }
    *prev_req_time = cur_time;
    return true;
}

int serve_date(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, u_char *buf,
               const char *field) {
    if (reqinfo->mode != MODE_GET) {
        return SNMP_ERR_GENERR;
    }
    const size_t size = 14;
    memset(buf, 0, size);
    if (field) {
        memcpy(buf, field, size);
    }
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, buf,
                             strnlen(reinterpret_cast<const char *>(buf), size));
    return SNMP_ERR_NOERROR;
}

static std::vector<std::string> s_stored_lines;

void store_persistent_line(const char *line) {
    read_config_store(APPL_NAME, line);
    s_stored_lines.emplace_back(line);
}

std::vector<std::string> take_stored_lines(void) {
    std::vector<std::string> lines;
    lines.swap(s_stored_lines);
    return lines;
}
