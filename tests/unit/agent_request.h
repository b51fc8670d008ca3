// Builds the request records the agent library hands a handler, so handlers
// can be driven mode by mode without a master agent.
#pragma once

#include <cstring>
#include <string>

#include "mib-extns/net_snmp.h"

struct AgentRequest {
    netsnmp_agent_request_info reqinfo{};
    netsnmp_request_info request{};
    netsnmp_variable_list var{};

    AgentRequest() { request.requestvb = &var; }
    ~AgentRequest() { snmp_free_var_internals(&var); }
    AgentRequest(const AgentRequest &) = delete;
    AgentRequest &operator=(const AgentRequest &) = delete;

    AgentRequest &integer(long v) {
        snmp_set_var_typed_value(&var, ASN_INTEGER, &v, sizeof(v));
        return *this;
    }
    AgentRequest &text(const std::string &s) {
        snmp_set_var_typed_value(&var, ASN_OCTET_STR, s.data(), s.size());
        return *this;
    }
    // Runs the handler in one mode and returns its result.
    int run(Netsnmp_Node_Handler *handler, int mode) {
        reqinfo.mode = mode;
        return handler(nullptr, nullptr, &reqinfo, &request);
    }
    long integer_value() const { return var.val.integer ? *var.val.integer : -12345; }
    std::string text_value() const {
        return var.val.string
                   ? std::string(reinterpret_cast<const char *>(var.val.string), var.val_len)
                   : std::string();
    }
};
