// SPDX-License-Identifier: Apache-2.0
#include "platform/notice.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace platform {

namespace {
void (*s_notice_sink)(int, const char *) = nullptr;
// A default id names no thread: nothing is marked yet.
std::atomic<std::thread::id> s_main_thread{};
} // namespace

int64_t monotonic_ms() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void set_notice_sink(void (*sink)(int priority, const char *line)) {
    s_notice_sink = sink;
}

void notice(int priority, const char *format, ...) {
    TEMHOSTD_MAIN_THREAD_ONLY();
    if (!s_notice_sink) {
        return;
    }
    char line[512];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    s_notice_sink(priority, line);
}

void mark_main_thread() {
    s_main_thread.store(std::this_thread::get_id());
}

bool on_main_thread() {
    const std::thread::id main = s_main_thread.load();
    return main == std::thread::id() || main == std::this_thread::get_id();
}

void off_main_thread(const char *file, int line, const char *function) {
    fprintf(stderr, "%s:%d: %s called off the main thread\n", file, line, function);
    fflush(stderr);
    abort();
}

} // namespace platform
