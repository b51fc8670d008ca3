// SPDX-License-Identifier: Apache-2.0
#include "platform/kstat.h"

#include "platform/host_files.h"
#include "platform/host_paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <unistd.h>
#include <vector>

// The chain is a snapshot of which statistics exist when it is opened;
// their values are fetched from /proc again by every kstat_read. A sweep
// over the processors shares one read of /proc/stat: a processor's read
// takes a fresh copy only when the handle has none yet or this processor
// was already served from it, so reading any statistic twice always sees
// newer figures, while one pass over n processors reads the file once
// instead of n times (it holds every processor and costs the kernel time
// in proportion to their number).

namespace {

enum class Kind { SystemPages, SystemMisc, CpuStat };

// The entries are plain data, so a handle is one block the caller cannot tell
// from the Solaris one and kstat_close can find its entries again.
struct Entry {
    kstat_t ks;
    Kind kind;
    kstat_named_t named[1];
    cpu_stat_t raw;
    unsigned long served_copy; // copy of /proc/stat last read from; 0: none
};

struct Handle {
    kstat_ctl_t kc; // first member: the pointer handed out is the handle's
    Entry *entries;
    size_t count;
    std::vector<platform::CpuTicks> stat_copy; // processors of /proc/stat, ascending
    unsigned long stat_copy_id;                // 0 until the first copy
};

void copy_name(char (&dst)[KSTAT_STRLEN], const char *src) {
    snprintf(dst, sizeof(dst), "%s", src);
}

// Free memory as the kernel counts it for new work: MemAvailable. Kernels
// older than 3.14 lack it; MemFree is the nearest figure they have.
bool read_freemem(uint64_t &pages) {
    std::string meminfo;
    if (!platform::read_host_text("/proc/meminfo", meminfo)) {
        return false;
    }
    uint64_t kb;
    if (!platform::meminfo_kb(meminfo, "MemAvailable", kb) &&
        !platform::meminfo_kb(meminfo, "MemFree", kb)) {
        errno = EIO;
        return false;
    }
    pages = kb * 1024 / static_cast<uint64_t>(getpagesize());
    return true;
}

// Callers use processor numbers 0 .. ncpus-1 as indexes, so ncpus is one
// more than the highest present processor; on hosts without gaps in the
// numbering that is the processor count.
bool read_ncpus(uint32_t &ncpus) {
    std::string present;
    std::vector<int> cpus;
    if (platform::read_host_text("/sys/devices/system/cpu/present", present) &&
        platform::parse_cpu_list(present, cpus)) {
        ncpus = static_cast<uint32_t>(cpus.back()) + 1;
        return true;
    }
    // sysconf only describes the live host, never a fixture tree.
    if (platform::host_root().empty()) {
        long n = sysconf(_SC_NPROCESSORS_CONF);
        if (n > 0) {
            ncpus = static_cast<uint32_t>(n);
            return true;
        }
    }
    errno = ENOENT;
    return false;
}

// Linux ticks onto the four Solaris states. nice is user work and irq and
// softirq are kernel work. iowait is Solaris' wait state. steal is left out:
// time taken by the hypervisor is neither this guest's work nor its idle,
// and the sampler's busy share should describe only what ran here. guest
// time is already inside user and nice.
void fill_cpu_stat(const platform::CpuTicks &t, cpu_stat_t &out) {
    // The Solaris counters are 32 bits wide and wrap; truncation keeps the
    // differences callers take between two reads exact.
    out.cpu_sysinfo.cpu[CPU_IDLE] = static_cast<uint_t>(t.idle);
    out.cpu_sysinfo.cpu[CPU_USER] = static_cast<uint_t>(t.user + t.nice);
    out.cpu_sysinfo.cpu[CPU_KERNEL] = static_cast<uint_t>(t.system + t.irq + t.softirq);
    out.cpu_sysinfo.cpu[CPU_WAIT] = static_cast<uint_t>(t.iowait);
}

bool by_cpu(const platform::CpuTicks &a, const platform::CpuTicks &b) {
    return a.cpu < b.cpu;
}

bool read_cpu_stat(Handle &h, Entry &e) {
    if (h.stat_copy_id == 0 || e.served_copy == h.stat_copy_id) {
        std::string stat;
        if (!platform::read_host_text("/proc/stat", stat)) {
            return false;
        }
        h.stat_copy = platform::parse_stat_cpus(stat);
        std::stable_sort(h.stat_copy.begin(), h.stat_copy.end(), by_cpu);
        ++h.stat_copy_id;
    }
    e.served_copy = h.stat_copy_id;
    platform::CpuTicks key;
    key.cpu = e.ks.ks_instance;
    auto it = std::lower_bound(h.stat_copy.begin(), h.stat_copy.end(), key, by_cpu);
    if (it != h.stat_copy.end() && it->cpu == key.cpu) {
        fill_cpu_stat(*it, e.raw);
        return true;
    }
    // The processor went off-line since the chain was built.
    errno = ENXIO;
    return false;
}

bool refresh(Handle &h, Entry &e) {
    switch (e.kind) {
    case Kind::SystemPages: {
        uint64_t pages;
        if (!read_freemem(pages)) {
            return false;
        }
        e.named[0].value.ui64 = pages;
        return true;
    }
    case Kind::SystemMisc: {
        uint32_t n;
        if (!read_ncpus(n)) {
            return false;
        }
        e.named[0].value.ui32 = n;
        return true;
    }
    case Kind::CpuStat:
        return read_cpu_stat(h, e);
    }
    errno = EINVAL;
    return false;
}

void init_named(Entry &e, Kind kind, const char *name, const char *key, uchar_t type) {
    e.kind = kind;
    copy_name(e.ks.ks_module, "unix");
    e.ks.ks_instance = 0;
    copy_name(e.ks.ks_name, name);
    e.ks.ks_type = KSTAT_TYPE_NAMED;
    copy_name(e.named[0].name, key);
    e.named[0].data_type = type;
    e.ks.ks_data = e.named;
    e.ks.ks_ndata = 1;
    e.ks.ks_data_size = sizeof(e.named);
}

Entry *find_entry(kstat_ctl_t *kc, const kstat_t *ksp) {
    Handle *h = reinterpret_cast<Handle *>(kc);
    for (size_t i = 0; i < h->count; ++i) {
        if (&h->entries[i].ks == ksp) {
            return &h->entries[i];
        }
    }
    return nullptr;
}

kstat_ctl_t *open_chain(void) {
    std::string stat;
    if (!platform::read_host_text("/proc/stat", stat)) {
        return nullptr;
    }
    std::vector<platform::CpuTicks> cpus = platform::parse_stat_cpus(stat);
    std::sort(
        cpus.begin(), cpus.end(),
        [](const platform::CpuTicks &a, const platform::CpuTicks &b) { return a.cpu < b.cpu; });
    cpus.erase(std::unique(cpus.begin(), cpus.end(),
                           [](const platform::CpuTicks &a, const platform::CpuTicks &b) {
                               return a.cpu == b.cpu;
                           }),
               cpus.end());
    if (cpus.empty()) {
        errno = EIO;
        return nullptr;
    }

    Handle *h = new (std::nothrow) Handle();
    Entry *entries = new (std::nothrow) Entry[2 + cpus.size()]();
    if (!h || !entries) {
        delete h;
        delete[] entries;
        errno = ENOMEM;
        return nullptr;
    }
    h->entries = entries;
    h->count = 2 + cpus.size();

    init_named(entries[0], Kind::SystemPages, "system_pages", "freemem", KSTAT_DATA_UINT64);
    init_named(entries[1], Kind::SystemMisc, "system_misc", "ncpus", KSTAT_DATA_UINT32);
    for (size_t i = 0; i < cpus.size(); ++i) {
        Entry &e = entries[2 + i];
        e.kind = Kind::CpuStat;
        copy_name(e.ks.ks_module, "cpu_stat");
        e.ks.ks_instance = cpus[i].cpu;
        snprintf(e.ks.ks_name, sizeof(e.ks.ks_name), "cpu_stat%d", cpus[i].cpu);
        e.ks.ks_type = KSTAT_TYPE_RAW;
        e.ks.ks_data = &e.raw;
        e.ks.ks_ndata = 1;
        e.ks.ks_data_size = sizeof(e.raw);
        fill_cpu_stat(cpus[i], e.raw);
    }
    for (size_t i = 0; i < h->count; ++i) {
        entries[i].ks.ks_kid = static_cast<kid_t>(i + 1);
        entries[i].ks.ks_next = i + 1 < h->count ? &entries[i + 1].ks : nullptr;
    }
    h->kc.kc_chain_id = 1;
    h->kc.kc_chain = &entries[0].ks;
    return &h->kc;
}

kid_t read_entry(kstat_ctl_t *kc, kstat_t *ksp, void *buf) {
    Entry *e = find_entry(kc, ksp);
    if (!e) {
        errno = ENXIO;
        return -1;
    }
    if (!refresh(*reinterpret_cast<Handle *>(kc), *e)) {
        return -1;
    }
    if (buf) {
        memcpy(buf, ksp->ks_data, ksp->ks_data_size);
    }
    return kc->kc_chain_id;
}

} // namespace

kstat_ctl_t *kstat_open(void) {
    return platform::c_call<kstat_ctl_t *>(nullptr, open_chain);
}

kstat_t *kstat_lookup(kstat_ctl_t *kc, const char *module, int instance, const char *name) {
    if (!kc) {
        errno = EINVAL;
        return nullptr;
    }
    for (kstat_t *ks = kc->kc_chain; ks; ks = ks->ks_next) {
        if (module && strcmp(ks->ks_module, module) != 0) {
            continue;
        }
        if (instance != -1 && ks->ks_instance != instance) {
            continue;
        }
        if (name && strcmp(ks->ks_name, name) != 0) {
            continue;
        }
        return ks;
    }
    errno = ENOENT;
    return nullptr;
}

kid_t kstat_read(kstat_ctl_t *kc, kstat_t *ksp, void *buf) {
    if (!kc || !ksp) {
        errno = EINVAL;
        return -1;
    }
    return platform::c_call<kid_t>(-1, [&] { return read_entry(kc, ksp, buf); });
}

void *kstat_data_lookup(kstat_t *ksp, const char *name) {
    if (!ksp || !name || ksp->ks_type != KSTAT_TYPE_NAMED) {
        errno = EINVAL;
        return nullptr;
    }
    kstat_named_t *named = static_cast<kstat_named_t *>(ksp->ks_data);
    for (uint_t i = 0; named && i < ksp->ks_ndata; ++i) {
        if (strncmp(named[i].name, name, KSTAT_STRLEN) == 0) {
            return &named[i];
        }
    }
    errno = ENOENT;
    return nullptr;
}

int kstat_close(kstat_ctl_t *kc) {
    if (!kc) {
        return 0;
    }
    Handle *h = reinterpret_cast<Handle *>(kc);
    delete[] h->entries;
    delete h;
    return 0;
}
