// SPDX-License-Identifier: Apache-2.0
// Ours, beside the daemon's start-up: systemd's notification protocol
// (Type=notify). Readiness once the subtree answers through the master, a
// watchdog ping as an alarm of the main loop, and the start of a stop.
// Without NOTIFY_SOCKET in the environment every call does nothing.
#pragma once

// Called once the subtree answers through the master. The watchdog ping
// runs at half the interval systemd asks for, so a loop stuck for longer
// than that interval stops pinging and is restarted.
void tell_service_manager_ready(void);
void tell_service_manager_stopping(void);
