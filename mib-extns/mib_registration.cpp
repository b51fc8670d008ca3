#include "mib-extns/mib_registration.h"

#include <cstdint>

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

bool register_table_iterator(const TableIteratorSpec &table) {
    netsnmp_table_registration_info *table_info =
        SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_iterator_info *iinfo = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
    netsnmp_handler_registration *reg = netsnmp_create_handler_registration(
        table.name, table.handler, table.table_oid, table.oid_len, HANDLER_CAN_RWRITE);
    if (!table_info || !iinfo || !reg) {
        SNMP_FREE(table_info);
        SNMP_FREE(iinfo);
        if (reg) {
            netsnmp_handler_registration_free(reg);
        }
        return false;
    }
    netsnmp_table_helper_add_indexes(table_info, ASN_INTEGER, 0);
    table_info->min_column = 1;
    table_info->max_column = table.max_column;
    iinfo->get_first_data_point = table.get_first;
    iinfo->get_next_data_point = table.get_next;
    iinfo->table_reginfo = table_info;
    VOR_DEBUG(table.debug_token, "%s", table.registering);
    netsnmp_register_table_iterator(reg, iinfo);
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
