// SPDX-License-Identifier: Apache-2.0
// Physical memory and paging space in whole megabytes, computed afresh on
// every call. Intermediates are 64-bit so hosts beyond 2 TiB of memory or
// swap report true figures; a figure that does not fit the MIB's 32-bit
// INTEGER is served as 2147483647.
#pragma once

#include <cstdint>

// Page count to KB converter, chosen once from the page size by init_pagetok.
typedef int64_t (*pagetok_t)(int64_t size);
extern pagetok_t p_pagetok; // null until init_pagetok has run

int64_t pagetok_left(int64_t size);  // page size above 1 KB
int64_t pagetok_none(int64_t size);  // page size exactly 1 KB
int64_t pagetok_right(int64_t size); // page size below 1 KB (shift keeps the sign)

void init_pagetok(void);

int get_PhysicalMemorySizeMB(void); // total, plus 1 MB; 1 when unknown
int get_PhysicalMemoryFreeMB(void); // 0 when the free page count cannot be read
long get_VirtualMemorySizeMB(void); // 0 without swap or when swap cannot be read
long get_VirtualMemoryFreeMB(void); // total less reserved, same fallbacks

// Total and free swap in pages; both 0 when the swap accounting fails.
void get_swapinfo(long *total, long *fr);

// Where the provider reads the host's figures. The daemon uses the host's own
// calls; tests substitute fixed figures to check the arithmetic at page and
// memory sizes the test host does not have.
struct MemorySource {
    long (*sysconf)(int name);          // _SC_PAGESIZE, _SC_PHYS_PAGES
    int (*getpagesize)(void);           // page size of the free-page count
    uint64_t (*freemem)(void);          // free pages, all ones when unreadable
    int (*swapctl)(int cmd, void *arg); // SC_AINFO into a struct anoninfo
};
// Null restores the host's own source. Does not reset p_pagetok.
void set_memory_source(const MemorySource *source);
