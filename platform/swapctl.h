// SPDX-License-Identifier: Apache-2.0
// Solaris swapctl(2) with SC_AINFO: swap accounting in pages of getpagesize().
#pragma once

#define SC_AINFO 5

typedef unsigned long pgcnt_t;

struct anoninfo {
    pgcnt_t ani_max;  // total swap
    pgcnt_t ani_free; // unused swap
    pgcnt_t ani_resv; // swap in use
};

namespace solaris {

// SC_AINFO fills the anoninfo at arg and returns 0; -1 with errno on failure.
int swapctl(int cmd, void *arg);

} // namespace solaris
