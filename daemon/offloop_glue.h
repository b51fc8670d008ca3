// SPDX-License-Identifier: Apache-2.0
// Ours, beside the main loop: what the platform layer's work off the loop
// (platform/offloop.h, platform/mount_probe.h) needs from it: the
// completion descriptor joins the library's select set, and the platform's
// lines go to the log.
#pragma once

// Before the first refresh.
void attach_offloop(void);
// At the stop, before the library shuts down: no descriptor outlives the
// run. A call still waiting in a hung file system is not waited for.
void detach_offloop(void);
