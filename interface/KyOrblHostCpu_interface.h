// SPDX-License-Identifier: Apache-2.0
// CPU load sampler: one record per processor with its busy percentage
// averaged over 1, 5, 30 and 60 minutes. A repeating timer samples the
// kernel's per-processor tick counters; the records are made once at
// start-up and updated in place, and the CPU table reads them directly.
#pragma once

#include <cstdio>

#include <ctime>

#include "platform/kstat.h"

#define CPU_HWLOC_SIZE 256

// One ring buffer's header; data points into the owning record.
typedef struct avg_t {
    unsigned int next;   // slot the next sample goes to
    unsigned int count;  // capacity in slots
    unsigned int sample; // samples written since the reset (never decreases)
    unsigned int *data;
} avg_t;

// Ring slots of hdr[]; slot 0 is unused.
enum { CPU_RING_1MIN = 1, CPU_RING_5MIN = 2, CPU_RING_30MIN = 3, CPU_RING_60MIN = 4 };

typedef struct _vorHoCpuUtilEntry_type_t {
    int index;                           // processor number, also the table row index
    int cpu_1min;                        // percentages 0..100, -1 while not yet known
    int cpu_5min;                        // -1 until 300 s after start-up
    int cpu_30min;                       // -1 until 1800 s after start-up
    int cpu_60min;                       // -1 until 3600 s after start-up
    char cpu_hwLocation[CPU_HWLOC_SIZE]; // never filled: stays empty
    avg_t hdr[5];
    unsigned int data_1min[60];
    unsigned int data_5min[5];
    unsigned int data_30min[30];
    unsigned int data_60min[60];
} vorHoCpuUtilEntry_type;

typedef struct _vorHostOs_Cpu_Util_t {
    vorHoCpuUtilEntry_type vorCpu;
    struct _vorHostOs_Cpu_Util_t *next;
} vorHostOs_Cpu_Util_t;

// Head of the records, in ascending processor number; null when empty.
extern vorHostOs_Cpu_Util_t *CpuUtilList;
// Processor count ("unix" 0 "system_misc" "ncpus"); 0 until read, -1 when
// the read failed.
extern int g_numCpu;
// Previous and current tick samples, g_numCpu each, indexed by processor
// number; allocated by the first sample, freed by cleanup_cpustat_chain.
extern cpu_stat_t *cpu_stat_prev;
extern cpu_stat_t *cpu_stat_now;
// Sampling period in seconds.
extern int cpu_poll_time;

// The table's columns, also the value codes of ReadCpuStatVal.
enum {
    CPU_UTIL_INDEX = 1,
    CPU_UTIL_1MIN = 2,
    CPU_UTIL_5MIN = 3,
    CPU_UTIL_30MIN = 4,
    CPU_UTIL_60MIN = 5,
    CPU_UTIL_HW_LOCATION = 6,
    CPU_UTIL_MAX_COLUMN = CPU_UTIL_HW_LOCATION,
};

// Reads the processor count and makes one record per processor, every
// average unknown; stamps the start of the -1 windows. 1 on success.
int initCpuUtilTable(void);
// g_numCpu from the kernel statistics: 1 when it is positive.
int GetKstatCpuInfo(void);
// Appends a fresh record for processor instance: 0 when out of memory.
int HostOsCpuEntry_new(int instance);
// Averages to -1, rings empty.
void reset_cpu_info_list(vorHostOs_Cpu_Util_t *cpuPtr);
// One sample (the timer's work): 1 when a sample was taken. The first
// successful sample only primes the previous counters.
int refresh_cpuLoad_CB(void);
// The same in the shape of an SNMP alarm callback.
void refresh_cpuLoad_alarm(unsigned int clientreg, void *clientarg);
// Fills cpu_stat_now from the statistics chain: 1 on success.
int FetchKstatCpuLoad(void);
// Turns the two samples into loads and pushes them through the rings.
int do_Load_Avg(void);
// Stores value in ring hdr[index] and the rounded mean of its filled slots
// in *avg. Always 1.
int compute_avg(int index, unsigned int value, unsigned int *avg, avg_t *hdr);
// Sets online[n] for every line of a psrinfo listing that starts with a
// processor number n below ncpu and says "on-line"; other lines are skipped.
void mark_online_processors(FILE *fp, unsigned char *online, int ncpu);
// Whether the last psrinfo listing showed processor cpu_id "on-line".
int isOnline(int cpu_id);
vorHostOs_Cpu_Util_t *find_cpu_inst(int instance);
// The first record whose index is index or more (null past the last).
vorHostOs_Cpu_Util_t *cpu_row_from(unsigned long index);
// Writes the value named by val_Type (the column codes above) of processor
// cpu_id to cpustat_val: an int for 1 to 5, for 6 the location's bytes
// without a NUL. 0 for a missing processor or an unknown code.
int ReadCpuStatVal(int cpu_id, int val_Type, void *cpustat_val);
int getFirstCpuIndex(int *cpu_index);
int getNextCpuIndex(int curr_cpu_index, int *next_cpu_index);
// Registers the repeating sampling timer. The daemon arms its own instead;
// only one may exist.
int CpuUtilsetupAlarm(void);
// Frees every record and both sample arrays.
void cleanup_cpustat_chain(void);

// Busy percentage of one processor between two samples: user and kernel
// ticks over all ticks, the share rounded to three decimals in single
// precision; 0 when no tick passed or the figure is out of range.
unsigned int cpu_load_percent(const cpu_stat_t &prev, const cpu_stat_t &now);

// The sampler's clock (the -1 windows and initial_time); null restores time().
void set_cpu_clock(time_t (*clock)(void));
