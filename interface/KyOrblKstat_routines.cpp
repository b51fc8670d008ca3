// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblKstat_routines.h"

#include <cstdio>

// The statistic found by the latest lookup. It belongs to the control handle
// that produced it and is dead once that handle is closed.
static kstat_t *ksp;

kstat_ctl_t *kstatInit(void) {
    kstat_ctl_t *kc = kstat_open();
    if (!kc) {
        perror("kstat_open");
    }
    return kc;
}

kstat_t *kstatLookAndRead(kstat_ctl_t *kc, const char *module, int instance, const char *name) {
    ksp = kstat_lookup(kc, module, instance, name);
    if (!ksp) {
        perror("kstat_lookup failed");
        return nullptr;
    }
    // A null buffer makes the library refresh the statistic's own data area.
    if (kstat_read(kc, ksp, nullptr) == -1) {
        perror("kstat_read failed ");
        return nullptr;
    }
    return ksp;
}

uint64_t _fetch64(kstat_t *stat, const char *value64) {
    const auto *kn = static_cast<const kstat_named_t *>(kstat_data_lookup(stat, value64));
    return kn ? kn->value.ui64 : KSTAT_FAIL64;
}

uint32_t _fetch32(kstat_t *stat, const char *value) {
    const auto *kn = static_cast<const kstat_named_t *>(kstat_data_lookup(stat, value));
    return kn ? kn->value.ui32 : KSTAT_FAIL32;
}

template <typename T, T (*fetch)(kstat_t *, const char *)>
static T read_once(const char *module, int instance, const char *name, const char *key, T failure) {
    kstat_ctl_t *kc = kstatInit();
    if (!kc) {
        return failure;
    }
    T result = failure;
    if (kstatLookAndRead(kc, module, instance, name)) {
        result = fetch(ksp, key);
    }
    kstat_close(kc);
    ksp = nullptr; // freed with the handle
    return result;
}

uint64_t getKstatVal64(const char *module, int instance, const char *name, const char *key) {
    return read_once<uint64_t, _fetch64>(module, instance, name, key, KSTAT_FAIL64);
}

uint32_t getKstatVal32(const char *module, int instance, const char *name, const char *key) {
    return read_once<uint32_t, _fetch32>(module, instance, name, key, KSTAT_FAIL32);
}
