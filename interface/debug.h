// SPDX-License-Identifier: Apache-2.0
// Debug output shared by every layer that logs through the SNMP library.
#pragma once

#include "interface/net_snmp.h"

// A " file, line" line under "trace", then the message under the caller's
// token. Nothing is formatted unless debugging is on (-D).
#define VOR_DEBUG(token, ...)                                                                      \
    do {                                                                                           \
        if (snmp_get_do_debugging()) {                                                             \
            DEBUGMSGTL(("trace", " %s, %d\n", __FILE__, __LINE__));                                \
            DEBUGMSGTL((token, __VA_ARGS__));                                                      \
        }                                                                                          \
    } while (0)
