// SPDX-License-Identifier: Apache-2.0
// Ours, beside the main loop: what the platform layer (platform/offloop.h,
// platform/mount_probe.h, platform/popen_stream.h, platform/notice.h) needs
// from it. The thread that attaches is marked as the main thread, the
// completion descriptor joins the library's select set, the platform's
// lines go to the log, and killed programs that take a while to end are
// reaped from an alarm.
#pragma once

// Before the first refresh, on the main thread.
void attach_platform(void);
// At the stop, before the library shuts down: no descriptor outlives the
// run. A call still waiting in a hung file system is not waited for.
void detach_platform(void);
