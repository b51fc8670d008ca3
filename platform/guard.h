// SPDX-License-Identifier: Apache-2.0
// The one guard between C++ and C callers. The Solaris-shaped calls and
// everything the SNMP library calls back are C interfaces: they report
// failure through their result and errno, never by an exception that would
// unwind through a C caller. An allocation failing in their C++ insides
// (or anything else thrown) reads as ENOMEM and the given failure result.
#pragma once

#include <cerrno>

namespace platform {

template <typename R, typename F> R c_call(R on_failure, F &&body) noexcept {
    try {
        return body();
    } catch (...) {
        errno = ENOMEM;
        return on_failure;
    }
}

} // namespace platform
