// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostCpu_interface.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "interface/KyOrblKstat_routines.h"
#include "interface/debug.h"
#include "interface/row_index.h"
#include "platform/commands.h"
#include "platform/popen_stream.h"

#define CPU_TOKEN "vorOrblCpuinterface"

vorHostOs_Cpu_Util_t *CpuUtilList = nullptr;
int g_numCpu = 0;
cpu_stat_t *cpu_stat_prev = nullptr;
cpu_stat_t *cpu_stat_now = nullptr;
int cpu_poll_time = 10;

static int s_ncpuStatSize = 0; // bytes in each sample array
static time_t initial_time = 0;
// Set until a sample has primed cpu_stat_prev; set again when the sample
// arrays are freed, so that a rebuilt sampler primes afresh.
static int first_time = 1;

static time_t system_clock(void) {
    return time(nullptr);
}
static time_t (*s_clock)(void) = system_clock;

void set_cpu_clock(time_t (*clock)(void)) {
    s_clock = clock ? clock : system_clock;
}

static RowIndex<vorHostOs_Cpu_Util_t> s_rows;

// Processors that the last psrinfo listing showed "on-line", one flag per
// processor number below s_online_count.
static std::unique_ptr<unsigned char[]> s_online;
static int s_online_count = 0;

// Processor states change rarely, and a listing starts a program every
// sample (most of what an idle daemon costs). So a listing is taken again
// only when the processors in the statistics differ from those at the last
// listing (Linux drops an off-line processor from them) or that listing is
// LISTING_MAX_AGE seconds old (a state the statistics do not show).
static const time_t LISTING_MAX_AGE = 60;
static std::vector<int> s_listed_present;
static time_t s_listed_at = 0;

static bool listing_due(const std::vector<int> &present) {
    const time_t now = s_clock();
    if (s_online && present == s_listed_present && now >= s_listed_at &&
        now - s_listed_at < LISTING_MAX_AGE) {
        return false;
    }
    s_listed_present = present;
    s_listed_at = now;
    return true;
}

// Slots of the 1-minute ring: one per sample of the last minute.
static unsigned int one_minute_slots(void) {
    const int slots = cpu_poll_time > 0 ? 60 / cpu_poll_time : 60;
    return slots < 1 ? 1 : static_cast<unsigned int>(slots);
}

int GetKstatCpuInfo(void) {
    g_numCpu = static_cast<int>(getKstatVal32("unix", 0, "system_misc", "ncpus"));
    return g_numCpu > 0 ? 1 : 0;
}

int initCpuUtilTable(void) {
    cleanup_cpustat_chain();
    g_numCpu = 0;
    if (!GetKstatCpuInfo()) {
        snmp_log(LOG_ERR, "Orbeline Host Agent:-kstat cpuinfo Failed  \n");
        return 0;
    }
    initial_time = s_clock();
    for (int cpu = 0; cpu < g_numCpu; ++cpu) {
        if (!HostOsCpuEntry_new(cpu)) {
            return 0;
        }
    }
    return 1;
}

int HostOsCpuEntry_new(int instance) {
    vorHostOs_Cpu_Util_t *node = new (std::nothrow) vorHostOs_Cpu_Util_t();
    if (!node) {
        snmp_log(LOG_ERR, "Orbeline Host Agent:-new cpu entry  Failed calloc \n");
        return 0;
    }
    node->vorCpu.index = instance;
    reset_cpu_info_list(node);
    if (!s_rows.append(CpuUtilList, node)) {
        delete node;
        snmp_log(LOG_ERR, "Orbeline Host Agent:-new cpu entry  Failed calloc \n");
        return 0;
    }
    return 1;
}

void reset_cpu_info_list(vorHostOs_Cpu_Util_t *cpuPtr) {
    vorHoCpuUtilEntry_type &e = cpuPtr->vorCpu;
    e.cpu_1min = e.cpu_5min = e.cpu_30min = e.cpu_60min = -1;
    const struct {
        int ring;
        unsigned int *data;
        unsigned int count;
    } rings[] = {
        {CPU_RING_1MIN, e.data_1min, one_minute_slots()},
        {CPU_RING_5MIN, e.data_5min, 5},
        {CPU_RING_30MIN, e.data_30min, 30},
        {CPU_RING_60MIN, e.data_60min, 60},
    };
    for (const auto &r : rings) {
        e.hdr[r.ring].next = 0;
        e.hdr[r.ring].sample = 0;
        e.hdr[r.ring].data = r.data;
        e.hdr[r.ring].count = r.count;
    }
}

int refresh_cpuLoad_CB(void) {
    VOR_DEBUG(CPU_TOKEN, "refresh_cpu_CB: <Enter> \n");
    if (!FetchKstatCpuLoad()) {
        snmp_log(LOG_ERR, "Orbeline Host Agent:-Unable to get Kstat cpu load\n");
        return 0;
    }
    if (first_time) {
        first_time = 0;
    } else {
        do_Load_Avg();
    }
    memcpy(cpu_stat_prev, cpu_stat_now, static_cast<size_t>(s_ncpuStatSize));
    return 1;
}

void refresh_cpuLoad_alarm(unsigned int, void *) {
    refresh_cpuLoad_CB();
}

int CpuUtilsetupAlarm(void) {
    snmp_alarm_register(static_cast<unsigned int>(cpu_poll_time), SA_REPEAT, refresh_cpuLoad_alarm,
                        nullptr);
    return 1;
}

void mark_online_processors(FILE *fp, unsigned char *online, int ncpu) {
    char line[256];
    bool line_start = true;
    while (fgets(line, sizeof(line), fp)) {
        // The rest of an overlong line is not a line of its own.
        const bool starts = line_start;
        line_start = strchr(line, '\n') != nullptr;
        if (!starts) {
            continue;
        }
        char *end = nullptr;
        const long cpu = strtol(line, &end, 10);
        if (end == line || line[0] == '-' || line[0] == '+' || cpu < 0 || cpu >= ncpu) {
            continue; // not a processor line, or a processor we keep no record of
        }
        if (strstr(end, "on-line")) {
            online[cpu] = 1;
        }
    }
}

// Runs psrinfo once, without arguments: it lists every processor, one line
// each, its number first and then its state. Starting one psrinfo per
// processor would cost a shell and a program per processor every sample.
// A listing that cannot be run, or does not end in time, leaves every
// processor not online, and is taken again at the next sample.
static int read_psrinfo_listing(void) {
    std::unique_ptr<unsigned char[]> online(new (std::nothrow) unsigned char[g_numCpu]());
    platform::PopenStream listing(platform::psrinfo_path());
    platform::CommandOutput text;
    if (!online || !listing.read_all(text)) {
        s_online.reset(); // nothing is known to be online
        return 0;
    }
    if (FILE *fp = text.as_file()) {
        mark_online_processors(fp, online.get(), g_numCpu);
    }
    s_online = std::move(online);
    s_online_count = g_numCpu;
    return 1;
}

int isOnline(int cpu_id) {
    return s_online && cpu_id >= 0 && cpu_id < s_online_count && s_online[cpu_id] ? 1 : 0;
}

// Closes the control handle on every path out of a sample.
struct KstatHandle {
    kstat_ctl_t *kc;
    ~KstatHandle() { kstat_close(kc); }
};

static void free_samples(void) {
    delete[] cpu_stat_prev;
    delete[] cpu_stat_now;
    cpu_stat_prev = nullptr;
    cpu_stat_now = nullptr;
    first_time = 1;
}

int FetchKstatCpuLoad(void) {
    KstatHandle handle{kstat_open()};
    if (!handle.kc) {
        snmp_log(LOG_ERR, "Orbeline Host Agent:-kstat open failed Failed  \n");
        return 0;
    }
    if (g_numCpu == 0 && !GetKstatCpuInfo()) {
        return 0;
    }
    if (g_numCpu <= 0) {
        return 0;
    }
    const size_t bytes = static_cast<size_t>(g_numCpu) * sizeof(cpu_stat_t);
    if (bytes > INT_MAX) {
        return 0;
    }
    s_ncpuStatSize = static_cast<int>(bytes);
    if (!cpu_stat_now) {
        cpu_stat_prev = new (std::nothrow) cpu_stat_t[g_numCpu]();
        cpu_stat_now = cpu_stat_prev ? new (std::nothrow) cpu_stat_t[g_numCpu]() : nullptr;
        if (!cpu_stat_now) {
            free_samples();
            return 0;
        }
    }

    // Processors that are not online read 0: their counters are held at 0
    // and their statistics are not read below.
    std::vector<int> present;
    for (const kstat_t *ks = handle.kc->kc_chain; ks; ks = ks->ks_next) {
        if (strncmp(ks->ks_name, "cpu_stat", 8) == 0) {
            present.push_back(ks->ks_instance);
        }
    }
    if (listing_due(present)) {
        read_psrinfo_listing();
    }
    for (int cpu = 0; cpu < g_numCpu; ++cpu) {
        if (!isOnline(cpu)) {
            memset(cpu_stat_now[cpu].cpu_sysinfo.cpu, 0, sizeof(cpu_stat_now[cpu].cpu_sysinfo.cpu));
        }
    }

    // Each "cpu_stat" statistic fills the slot of the processor named by its
    // own instance number. Hosts today have more than 64 processors, and
    // pairing by instance serves them all; when the chain holds exactly the
    // online processors in ascending order it gives the same slots as
    // pairing the k-th statistic with the k-th online processor. A statistic
    // of a processor we keep no record of, or of one not online, is ignored.
    for (kstat_t *ks = handle.kc->kc_chain; ks; ks = ks->ks_next) {
        if (strncmp(ks->ks_name, "cpu_stat", 8) != 0) {
            continue;
        }
        const int cpu = ks->ks_instance;
        if (cpu < 0 || cpu >= g_numCpu || !isOnline(cpu)) {
            continue;
        }
        if (kstat_read(handle.kc, ks, nullptr) == -1) {
            snmp_log(LOG_ERR, "Orbeline Host Agent:-kstat unable to read - fatal cpu offline  \n");
            return 0;
        }
        const size_t size =
            ks->ks_data_size < sizeof(cpu_stat_t) ? ks->ks_data_size : sizeof(cpu_stat_t);
        memcpy(&cpu_stat_now[cpu], ks->ks_data, size);
    }
    return 1;
}

unsigned int cpu_load_percent(const cpu_stat_t &prev, const cpu_stat_t &now) {
    const uint_t *p = prev.cpu_sysinfo.cpu;
    const uint_t *n = now.cpu_sysinfo.cpu;
    // Unsigned 32-bit differences absorb a counter that wrapped.
    const uint32_t idle = n[CPU_IDLE] - p[CPU_IDLE];
    const uint32_t user = n[CPU_USER] - p[CPU_USER];
    const uint32_t kernel = n[CPU_KERNEL] - p[CPU_KERNEL];
    const uint32_t wait = n[CPU_WAIT] - p[CPU_WAIT];
    const uint32_t delta = idle + user + kernel + wait;
    if (delta == 0) {
        return 0;
    }
    const uint32_t deductable = idle + wait;
    const int grossload = static_cast<int>(delta - deductable);
    // The share is kept in single precision and rounded to three decimals
    // through its printed form: a share of 0.13 is the float just below it
    // and reads 12 %, as the figures have always been reported.
    float share = static_cast<float>(static_cast<double>(grossload) / delta);
    char buf[100] = {0};
    snprintf(buf, sizeof(buf), "%.3f", static_cast<double>(share));
    share = static_cast<float>(atof(buf));
    const double percent = static_cast<double>(share) * 100.0;
    // Anything outside 0..100 (a negative share included) reads 0.
    if (!(percent > -1.0 && percent < 101.0)) {
        return 0;
    }
    return static_cast<unsigned int>(static_cast<int>(percent));
}

int do_Load_Avg(void) {
    if (!cpu_stat_prev || !cpu_stat_now) {
        return 0; // no sample taken yet
    }
    for (int cpu = 0; cpu < g_numCpu; ++cpu) {
        const unsigned int load = cpu_load_percent(cpu_stat_prev[cpu], cpu_stat_now[cpu]);
        vorHostOs_Cpu_Util_t *node = find_cpu_inst(cpu);
        if (!node) {
            snmp_log(LOG_ERR, "Orbeline Host Agent:-Unable to get cpu instance\n");
            return 0;
        }
        vorHoCpuUtilEntry_type &e = node->vorCpu;
        compute_avg(CPU_RING_1MIN, load, reinterpret_cast<unsigned int *>(&e.cpu_1min), e.hdr);
        if (e.hdr[CPU_RING_1MIN].next != 1) {
            continue;
        }
        // Ring 1 has just started a new cycle: once a minute the longer
        // rings take the current 1-minute figure. They are fed from the
        // start; only the published average waits until its whole span
        // has passed since start-up.
        const time_t elapsed = s_clock() - initial_time;
        const unsigned int one_min = static_cast<unsigned int>(e.cpu_1min);
        compute_avg(CPU_RING_5MIN, one_min, reinterpret_cast<unsigned int *>(&e.cpu_5min), e.hdr);
        if (elapsed <= 299) {
            e.cpu_5min = -1;
        }
        compute_avg(CPU_RING_30MIN, one_min, reinterpret_cast<unsigned int *>(&e.cpu_30min), e.hdr);
        if (elapsed <= 1799) {
            e.cpu_30min = -1;
        }
        compute_avg(CPU_RING_60MIN, one_min, reinterpret_cast<unsigned int *>(&e.cpu_60min), e.hdr);
        if (elapsed <= 3599) {
            e.cpu_60min = -1;
        }
    }
    return 1;
}

int compute_avg(int index, unsigned int value, unsigned int *avg, avg_t *hdr) {
    avg_t &ring = hdr[index];
    ring.data[ring.next] = value;
    ring.sample++;
    const unsigned int n = ring.sample < ring.count ? ring.sample : ring.count;
    uint32_t sum = 0;
    for (unsigned int i = 0; i < n; ++i) {
        sum += ring.data[i];
    }
    *avg = (sum + n / 2) / n; // nearest, halves up
    ring.next = ring.next + 1 >= ring.count ? 0 : ring.next + 1;
    return 1;
}

vorHostOs_Cpu_Util_t *find_cpu_inst(int instance) {
    vorHostOs_Cpu_Util_t *row =
        instance >= 0 ? cpu_row_from(static_cast<unsigned long>(instance)) : nullptr;
    return row && row->vorCpu.index == instance ? row : nullptr;
}

vorHostOs_Cpu_Util_t *cpu_row_from(unsigned long index) {
    return s_rows.from(index, [](const vorHostOs_Cpu_Util_t *row) { return row->vorCpu.index; });
}

int ReadCpuStatVal(int cpu_id, int val_Type, void *cpustat_val) {
    const vorHostOs_Cpu_Util_t *node = find_cpu_inst(cpu_id);
    if (!node) {
        return 0;
    }
    const vorHoCpuUtilEntry_type &e = node->vorCpu;
    int value;
    switch (val_Type) {
    case CPU_UTIL_INDEX:
        value = e.index;
        break;
    case CPU_UTIL_1MIN:
        value = e.cpu_1min;
        break;
    case CPU_UTIL_5MIN:
        value = e.cpu_5min;
        break;
    case CPU_UTIL_30MIN:
        value = e.cpu_30min;
        break;
    case CPU_UTIL_60MIN:
        value = e.cpu_60min;
        break;
    case CPU_UTIL_HW_LOCATION:
        memcpy(cpustat_val, e.cpu_hwLocation, strnlen(e.cpu_hwLocation, CPU_HWLOC_SIZE));
        return 1;
    default:
        return 0;
    }
    memcpy(cpustat_val, &value, sizeof(value));
    return 1;
}

int getFirstCpuIndex(int *cpu_index) {
    if (!CpuUtilList) {
        return 0;
    }
    *cpu_index = CpuUtilList->vorCpu.index;
    return 1;
}

int getNextCpuIndex(int curr_cpu_index, int *next_cpu_index) {
    for (const vorHostOs_Cpu_Util_t *node = CpuUtilList; node; node = node->next) {
        if (node->vorCpu.index == curr_cpu_index && node->next) {
            *next_cpu_index = node->next->vorCpu.index;
            return 1;
        }
    }
    return 0;
}

void cleanup_cpustat_chain(void) {
    while (CpuUtilList) {
        vorHostOs_Cpu_Util_t *next = CpuUtilList->next;
        delete CpuUtilList;
        CpuUtilList = next;
    }
    s_rows.clear();
    free_samples();
    s_online.reset();
    s_online_count = 0;
    s_listed_present.clear();
}
