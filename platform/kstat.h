// SPDX-License-Identifier: Apache-2.0
// Solaris kernel statistics (libkstat), as the providers use them. On Linux
// the statistics are built from /proc: "unix" 0 "system_pages" (freemem),
// "unix" 0 "system_misc" (ncpus) and one raw "cpu_stat" N "cpu_statN" per
// online processor. Every kstat_read fetches the kernel's current values.
#pragma once

#include <cstddef>
#include <cstdint>

typedef int kid_t;
typedef unsigned char uchar_t;
typedef unsigned int uint_t;

#define KSTAT_STRLEN 31

#define KSTAT_TYPE_RAW 0
#define KSTAT_TYPE_NAMED 1

#define KSTAT_DATA_CHAR 0
#define KSTAT_DATA_INT32 1
#define KSTAT_DATA_UINT32 2
#define KSTAT_DATA_INT64 3
#define KSTAT_DATA_UINT64 4

typedef struct kstat_named {
    char name[KSTAT_STRLEN];
    uchar_t data_type;
    union {
        char c[16];
        int32_t i32;
        uint32_t ui32;
        int64_t i64;
        uint64_t ui64;
    } value;
} kstat_named_t;

typedef struct kstat {
    struct kstat *ks_next;
    kid_t ks_kid;
    char ks_module[KSTAT_STRLEN];
    int ks_instance;
    char ks_name[KSTAT_STRLEN];
    uchar_t ks_type;
    void *ks_data; // kstat_named_t[ks_ndata] or one raw record
    uint_t ks_ndata;
    size_t ks_data_size; // bytes at ks_data
} kstat_t;

typedef struct kstat_ctl {
    kid_t kc_chain_id;
    kstat_t *kc_chain;
} kstat_ctl_t;

// Per-processor tick counters, indexes into cpu_sysinfo.cpu[].
#define CPU_IDLE 0
#define CPU_USER 1
#define CPU_KERNEL 2
#define CPU_WAIT 3
#define CPU_STATES 4

typedef struct cpu_sysinfo {
    uint_t cpu[CPU_STATES]; // 32-bit tick counters that wrap
} cpu_sysinfo_t;

typedef struct cpu_stat {
    cpu_sysinfo_t cpu_sysinfo;
} cpu_stat_t;

kstat_ctl_t *kstat_open(void);
kstat_t *kstat_lookup(kstat_ctl_t *kc, const char *module, int instance, const char *name);
kid_t kstat_read(kstat_ctl_t *kc, kstat_t *ksp, void *buf);
void *kstat_data_lookup(kstat_t *ksp, const char *name);
int kstat_close(kstat_ctl_t *kc);
