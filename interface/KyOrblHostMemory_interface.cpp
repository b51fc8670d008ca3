// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostMemory_interface.h"

#include <unistd.h>

#include <algorithm>
#include <climits>

#include "interface/KyOrblKstat_routines.h"
#include "platform/swapctl.h"

#define KB_PER_MB 1024
#define BYTES_PER_MB 1048576.0
#define LOG2_KB 10

// Shift distance between pages and KB; its direction is the converter's.
static int pageshift;

pagetok_t p_pagetok;

static uint64_t host_freemem(void) {
    return getKstatVal64("unix", 0, "system_pages", "freemem");
}

static const MemorySource host_source = {sysconf, getpagesize, host_freemem, solaris::swapctl};
static const MemorySource *source = &host_source;

void set_memory_source(const MemorySource *src) {
    source = src ? src : &host_source;
}

// Multiplying instead of shifting keeps a negative count (sysconf's -1)
// defined: it yields the same value a two's complement shift would.
int64_t pagetok_left(int64_t size) {
    return size * (INT64_C(1) << pageshift);
}

int64_t pagetok_none(int64_t size) {
    return size;
}

int64_t pagetok_right(int64_t size) {
    return size >> pageshift;
}

void init_pagetok(void) {
    if (p_pagetok) {
        return;
    }
    long i = source->sysconf(_SC_PAGESIZE);
    // Floor of log2(page size): a 6144-byte page converts like a 4096 one.
    pageshift = 0;
    while ((i >>= 1) > 0) {
        pageshift++;
    }
    pageshift -= LOG2_KB;
    if (pageshift > 0) {
        p_pagetok = pagetok_left;
    } else if (pageshift == 0) {
        p_pagetok = pagetok_none;
    } else {
        pageshift = -pageshift;
        p_pagetok = pagetok_right;
    }
}

// The MIB's INTEGER is 32 bits wide.
static int32_t to_served(int64_t mb) {
    return static_cast<int32_t>(std::clamp<int64_t>(mb, INT32_MIN, INT32_MAX));
}

int get_PhysicalMemorySizeMB(void) {
    init_pagetok();
    int64_t memory_total = p_pagetok(source->sysconf(_SC_PHYS_PAGES));
    // The extra MB is part of the figure, also when the division is exact.
    return to_served(memory_total / KB_PER_MB + 1);
}

int get_PhysicalMemoryFreeMB(void) {
    int pagesize = source->getpagesize();
    uint64_t raw = source->freemem();
    // The failure sentinel counts as -1 pages, which truncates to 0 MB. Any
    // other count is taken whole rather than as its low 32 bits, so a host
    // with more than 2^31 free pages is not reported negative.
    int64_t freemem = raw == KSTAT_FAIL64 ? -1 : static_cast<int64_t>(raw);
    double bytes = static_cast<double>(freemem) * pagesize;
    return to_served(static_cast<int64_t>(bytes / BYTES_PER_MB));
}

void get_swapinfo(long *total, long *fr) {
    struct anoninfo anon = {};
    if (source->swapctl(SC_AINFO, &anon) == -1) {
        *total = 0;
        *fr = 0;
        return;
    }
    // Reserved swap is already promised away: it does not count as free.
    *total = static_cast<long>(anon.ani_max);
    *fr = static_cast<long>(anon.ani_max) - static_cast<long>(anon.ani_resv);
}

long get_VirtualMemorySizeMB(void) {
    long swaptotal, swapfree;
    init_pagetok();
    get_swapinfo(&swaptotal, &swapfree);
    return to_served(p_pagetok(swaptotal) / KB_PER_MB);
}

long get_VirtualMemoryFreeMB(void) {
    long swaptotal, swapfree;
    init_pagetok();
    get_swapinfo(&swaptotal, &swapfree);
    return to_served(p_pagetok(swapfree) / KB_PER_MB);
}
