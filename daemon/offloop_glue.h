// SPDX-License-Identifier: Apache-2.0
// Ours, beside the main loop: what the platform layer's work off the loop
// (platform/offloop.h, platform/mount_probe.h, platform/popen_stream.h)
// needs from it. The completion descriptor joins the library's select set,
// the platform's lines go to the log, and killed programs that take a while
// to end are reaped from an alarm.
#pragma once

// Before the first refresh.
void attach_offloop(void);
// At the stop, before the library shuts down: no descriptor outlives the
// run. A call still waiting in a hung file system is not waited for.
void detach_offloop(void);
