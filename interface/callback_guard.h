// Net-SNMP calls our handlers and alarms from C: no C++ exception may
// unwind through it. Code that can throw (allocation in C++ containers)
// runs inside guard_callback, which logs and returns a fallback instead.
#pragma once

#include <exception>

#include "mib-extns/net_snmp.h"

template <typename F, typename R>
R guard_callback(const char *where, R on_error, F &&body) noexcept {
    try {
        return body();
    } catch (const std::exception &e) {
        snmp_log(LOG_ERR, "%s: %s\n", where, e.what());
    } catch (...) {
        snmp_log(LOG_ERR, "%s: unexpected failure\n", where);
    }
    return on_error;
}
