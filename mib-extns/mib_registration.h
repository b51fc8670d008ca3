// The conventions every MIB module follows: how scalars and tables are
// registered, the handler shapes by request mode, and debug output.
#pragma once

#include "mib-extns/net_snmp.h"

// Debug output: a " file, line" line under "trace", then the message under
// the module's token. Nothing is formatted unless debugging is on.
#define VOR_DEBUG(token, ...)                                                                      \
    do {                                                                                           \
        if (snmp_get_do_debugging()) {                                                             \
            DEBUGMSGTL(("trace", " %s, %d\n", __FILE__, __LINE__));                                \
            DEBUGMSGTL((token, __VA_ARGS__));                                                      \
        }                                                                                          \
    } while (0)

// Registers a scalar instance under the object's own name. Results are
// ignored by design: a failed registration leaves the object unserved.
void register_ro_scalar(const char *name, Netsnmp_Node_Handler *handler, const oid *reg_oid,
                        size_t oid_len);
void register_rw_scalar(const char *name, Netsnmp_Node_Handler *handler, const oid *reg_oid,
                        size_t oid_len);

#define REGISTER_RO_SCALAR(object)                                                                 \
    register_ro_scalar(#object, get_##object, object##_oid, OID_LENGTH(object##_oid))
#define REGISTER_RW_SCALAR(object, handler)                                                        \
    register_rw_scalar(#object, handler, object##_oid, OID_LENGTH(object##_oid))

// A table served through the iterator helper: one ASN_INTEGER index,
// columns 1..max_column, read-write registration. Returns false (and
// registers nothing) when a record could not be allocated.
struct TableIteratorSpec {
    const char *name;
    Netsnmp_Node_Handler *handler;
    const oid *table_oid;
    size_t oid_len;
    unsigned int max_column;
    Netsnmp_First_Data_Point *get_first;
    Netsnmp_Next_Data_Point *get_next;
    const char *debug_token; // token of the registering message
    const char *registering; // message written just before registration
};
bool register_table_iterator(const TableIteratorSpec &table);

// Read-only scalar shape: noError with the value in MODE_GET, genErr in any
// other mode (the value is then left untouched).
int serve_integer(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests, long value);
int serve_text(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests,
               const char *text);

// Puts a value into one request's variable: INTEGER as 4 bytes, text with
// its string length and no NUL.
void set_integer_value(netsnmp_request_info *request, long value);
void set_text_value(netsnmp_request_info *request, const char *text);

// Marks the request with an error status and returns that status, as the
// RESERVE1 refusals do.
int refuse_request(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, int status);

// RESERVE1 check of a text object: OCTET STRING (else wrongType) of at most
// max_len octets (else wrongLength). Logs under token on refusal.
int check_text_value(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                     size_t max_len, const char *token);
