// SPDX-License-Identifier: Apache-2.0
// What every part of this layer shares: the clock, the way its lines reach
// the daemon's log, and the main thread's mark. The log sink is the SNMP
// library's log, which is not thread-safe, so notice() and the other entries
// that may reach the library through the daemon's callbacks run on the main
// thread only; TEMHOSTD_MAIN_THREAD_ONLY() at their top turns a call from
// elsewhere into an abort that names the file and line, in every build.
#pragma once

#include <cstdint>

namespace platform {

// CLOCK_MONOTONIC in milliseconds (any thread).
int64_t monotonic_ms();

// Lines for the daemon's log from this layer (main thread only). Without a
// sink they go nowhere.
void set_notice_sink(void (*sink)(int priority, const char *line));
void notice(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The calling thread becomes the main thread: the daemon marks it when it
// attaches the platform to its loop. Until a thread is marked nothing is
// checked (a program or a test that never attaches runs on one thread).
void mark_main_thread();
// True on the marked thread, or while none is.
bool on_main_thread();
// Writes "FILE:LINE: FUNCTION called off the main thread" to stderr and
// aborts.
[[noreturn]] void off_main_thread(const char *file, int line, const char *function);

} // namespace platform

#define TEMHOSTD_MAIN_THREAD_ONLY()                                                                \
    do {                                                                                           \
        if (!::platform::on_main_thread()) {                                                       \
            ::platform::off_main_thread(__FILE__, __LINE__, __func__);                             \
        }                                                                                          \
    } while (0)
