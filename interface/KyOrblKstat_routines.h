// SPDX-License-Identifier: Apache-2.0
// Reads one named value out of one kernel statistic. Each getter opens its
// own control handle and closes it again, so every read sees the kernel's
// current figures and no descriptor stays open between reads.
#pragma once

#include <cstdint>

#include "platform/kstat.h"

// What every getter and fetch step returns when it cannot deliver a value.
// Callers doing signed 32-bit arithmetic on it see -1.
inline constexpr uint64_t KSTAT_FAIL64 = UINT64_MAX;
inline constexpr uint32_t KSTAT_FAIL32 = UINT32_MAX;

// kstat_open, with a perror line ("kstat_open") on failure.
kstat_ctl_t *kstatInit(void);

// Looks the statistic up and reads its current data; null (after a perror
// line) when either step fails. The handle stays open: the caller owns it.
kstat_t *kstatLookAndRead(kstat_ctl_t *kc, const char *module, int instance, const char *name);

// The named value's 64- or 32-bit member, all ones when the statistic has no
// such key. The record's data type is not consulted: the caller knows it.
uint64_t _fetch64(kstat_t *stat, const char *value64);
uint32_t _fetch32(kstat_t *stat, const char *value);

// One-shot reads: open, look up, read, fetch, close.
uint64_t getKstatVal64(const char *module, int instance, const char *name, const char *key);
uint32_t getKstatVal32(const char *module, int instance, const char *name, const char *key);
