// SPDX-License-Identifier: Apache-2.0
#include "daemon/platform_glue.h"

#include "interface/net_snmp.h"
#include "platform/notice.h"
#include "platform/offloop.h"
#include "platform/popen_stream.h"

static int s_completion_fd = -1;
static unsigned int s_reaper = 0;

static void drain_completions(int, void *) {
    platform::offloop::drain();
}

static void log_notice(int priority, const char *line) {
    snmp_log(priority, "%s", line);
}

static void arm_reaper(void);

static void reap(unsigned int, void *) {
    s_reaper = 0;
    if (platform::reap_killed_programs() > 0) {
        arm_reaper();
    }
}

// One alarm at a time, only while a killed program has yet to end.
static void arm_reaper(void) {
    if (s_reaper == 0) {
        struct timeval soon = {0, 100000};
        s_reaper = snmp_alarm_register_hr(soon, 0, reap, nullptr);
    }
}

void attach_platform(void) {
    platform::mark_main_thread();
    platform::set_notice_sink(log_notice);
    platform::set_reaping_request(arm_reaper);
    s_completion_fd = platform::offloop::completion_fd();
    if (s_completion_fd >= 0) {
        register_readfd(s_completion_fd, drain_completions, nullptr);
    }
}

void detach_platform(void) {
    if (s_completion_fd >= 0) {
        unregister_readfd(s_completion_fd);
        s_completion_fd = -1;
    }
    platform::offloop::close_completion_fd();
}
