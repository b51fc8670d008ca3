// SPDX-License-Identifier: Apache-2.0
#include "daemon/service_manager.h"

#include <cstdint>
#include <systemd/sd-daemon.h>

#include "interface/net_snmp.h"

static void send_watchdog_ping(unsigned int, void *) {
    sd_notify(0, "WATCHDOG=1");
}

void tell_service_manager_ready(void) {
    sd_notify(0, "READY=1");
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) > 0 && usec > 0) {
        struct timeval half;
        half.tv_sec = static_cast<time_t>(usec / 2 / 1000000);
        half.tv_usec = static_cast<suseconds_t>(usec / 2 % 1000000);
        snmp_alarm_register_hr(half, SA_REPEAT, send_watchdog_ping, nullptr);
    }
}

void tell_service_manager_stopping(void) {
    sd_notify(0, "STOPPING=1");
}
