// SPDX-License-Identifier: Apache-2.0
#include "daemon/offloop_glue.h"

#include "interface/net_snmp.h"
#include "platform/offloop.h"

static int s_completion_fd = -1;

static void drain_completions(int, void *) {
    platform::offloop::drain();
}

static void log_notice(int priority, const char *line) {
    snmp_log(priority, "%s", line);
}

void attach_offloop(void) {
    platform::set_notice_sink(log_notice);
    s_completion_fd = platform::offloop::completion_fd();
    if (s_completion_fd >= 0) {
        register_readfd(s_completion_fd, drain_completions, nullptr);
    }
}

void detach_offloop(void) {
    if (s_completion_fd >= 0) {
        unregister_readfd(s_completion_fd);
        s_completion_fd = -1;
    }
    platform::offloop::close_completion_fd();
}
