// SPDX-License-Identifier: Apache-2.0
// The conventions every MIB module follows: how scalars and tables are
// registered, the handler shapes by request mode, and debug output.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "interface/debug.h"
#include "interface/net_snmp.h"

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
    // Runs once per message, before the iterator's first pass (null: none):
    // the place for an on-demand rebuild, which must not free rows the
    // iterator or the handler still hold later in the same message.
    void (*before_walk)(void);
};
bool register_table_iterator(const TableIteratorSpec &table);

// The row hand-out shared by a table's first- and next-row callbacks: the
// node becomes both contexts and its integer index the row's index value.
netsnmp_variable_list *hand_out_row(void *node, int32_t index, void **my_loop_context,
                                    void **my_data_context, netsnmp_variable_list *put_index_data);

// For a table's first-row callback: the lowest row index the requests of
// this message name (0 when one names none), so the walk can begin at the
// first row with that index or more instead of at the head. Rows must be
// handed out in ascending index order. Later calls within the same message
// return 0 (the head).
oid table_walk_start(netsnmp_iterator_info *iinfo);

// The handler of a table with no writable column: a missing row is
// noSuchInstance for a GET and noCreation for a SET; a GET is served by
// serve(request, column, row); a SET of an existing row is accepted, changes
// nothing and is logged as an unsupported mode of handler_name.
template <typename Row, typename Serve>
int serve_read_only_table(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests,
                          const char *handler_name, Serve serve) {
    for (netsnmp_request_info *request = requests; request; request = request->next) {
        if (request->processed) {
            continue;
        }
        const auto *row = static_cast<const Row *>(netsnmp_extract_iterator_context(request));
        if (!row) {
            netsnmp_set_request_error(reqinfo, request,
                                      reqinfo->mode == MODE_GET ? SNMP_NOSUCHINSTANCE
                                                                : SNMP_ERR_NOCREATION);
            continue;
        }
        const netsnmp_table_request_info *table_info = netsnmp_extract_table_info(request);
        if (!table_info) {
            continue;
        }
        if (reqinfo->mode == MODE_GET) {
            serve(request, table_info->colnum, *row);
        } else {
            snmp_log(LOG_ERR, "problem encountered in %s: unsupported mode\n", handler_name);
        }
    }
    return SNMP_ERR_NOERROR;
}

// Puts a value into one request's variable: INTEGER as 4 bytes, text with
// its string length and no NUL.
void set_integer_value(netsnmp_request_info *request, long value);
void set_text_value(netsnmp_request_info *request, const char *text);

// Read-only INTEGER scalar shape: in MODE_GET the figure is fetched from
// its provider at this moment and served, noError; any other mode is
// genErr and fetches nothing (no system call for a request it refuses).
template <typename Figure>
int serve_integer(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests,
                  Figure figure) {
    if (reqinfo->mode != MODE_GET) {
        return SNMP_ERR_GENERR;
    }
    set_integer_value(requests, figure());
    return SNMP_ERR_NOERROR;
}

// Marks the request with an error status and returns that status, as the
// RESERVE1 refusals do.
int refuse_request(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, int status);

// The writable scalar shape, one call per handler: GET serves the value,
// RESERVE1 validates (and refuses through the request), ACTION applies,
// COMMIT does the object's side effect if it has one; RESERVE2, FREE and
// UNDO do nothing, so an undo restores nothing. Any other mode is genErr.
inline void no_side_effect(const netsnmp_variable_list *) {}

template <typename Get, typename Check, typename Apply, typename Commit = decltype(&no_side_effect)>
int serve_writable_scalar(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *requests,
                          Get get, Check check, Apply apply, Commit commit = &no_side_effect) {
    switch (reqinfo->mode) {
    case MODE_GET:
        get(requests);
        return SNMP_ERR_NOERROR;
    case MODE_SET_RESERVE1:
        return check(reqinfo, requests);
    case MODE_SET_ACTION:
        apply(requests->requestvb);
        return SNMP_ERR_NOERROR;
    case MODE_SET_COMMIT:
        commit(requests->requestvb);
        return SNMP_ERR_NOERROR;
    case MODE_SET_RESERVE2:
    case MODE_SET_FREE:
    case MODE_SET_UNDO:
        return SNMP_ERR_NOERROR;
    default:
        return SNMP_ERR_GENERR;
    }
}

// RESERVE1 check of an INTEGER object: ASN_INTEGER (else wrongType) from
// min to max (else badValue). Logs under token on refusal (no token: no
// debug lines), with bad_value_message for a value out of range.
int check_integer_range(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                        long min, long max, const char *token, const char *bad_value_message);

// The on-demand rebuild rule of the tables while periodic polling is off:
// the first walk always rebuilds (*prev_req_time is 0 until then), later
// walks at most once every min_interval seconds. A clock that went back
// (set by hand, for example) rebuilds at once rather than freezing the
// table until it catches up. Records cur_time as the rebuild time when due.
bool on_demand_rebuild_due(time_t *prev_req_time, time_t cur_time, int min_interval);

// The clock of that rule: time(nullptr) unless a test sets another (null
// puts it back).
time_t table_clock_now(void);
void set_table_clock(time_t (*now)(void));

// RESERVE1 check of a text object: OCTET STRING (else wrongType) of at most
// max_len octets (else wrongLength). Logs under token on refusal.
int check_text_value(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                     size_t max_len, const char *token);

// RESERVE1 check of a text that the persistent file keeps as a line
// "TOKEN value": OCTET STRING (else wrongType) of min_len to max_len octets
// (else wrongLength) holding no CR or LF (else badValue). A line end would
// end the line early and start lines of the writer's choosing, which the
// library reads back as configuration at the next start. Nor anything else
// the file cannot carry as it is (else badValue): a blank (space, tab,
// vertical tab, form feed) first or last, a '#' first, a NUL. Logs under
// token on refusal (no token: no debug lines).
int check_stored_text(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request,
                      size_t min_len, size_t max_len, const char *token);

// The length of text up to its first line end (CR or LF): what a reader of
// a stored line keeps, so that no value read can be written back as more
// than one line.
size_t length_before_line_end(const char *text);

// Read-only date scalar shape: in MODE_GET copies the 14-octet date field
// into buf (14 octets, the response's storage) and sends the octets before
// the first zero octet; a null field sends nothing. Other modes: genErr.
int serve_date(netsnmp_agent_request_info *reqinfo, netsnmp_request_info *request, u_char *buf,
               const char *field);

// Writes one line of the daemon's into the persistent file (the library's
// read_config_store) and remembers it, so that the daemon can read back
// after the final store whether the file holds it: the library reports no
// failed write.
void store_persistent_line(const char *line);
// The lines written since the last call, in order; the list is emptied.
std::vector<std::string> take_stored_lines(void);
