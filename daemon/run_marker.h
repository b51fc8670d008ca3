// SPDX-License-Identifier: Apache-2.0
// Ours, beside the pid file's crash test: a marker on persistent storage
// (the persistent file's directory), present from start-up until the clean
// stop has stored the persistent file. Unlike the pid file, which lives on
// the run directory's tmpfs, it outlives a reboot after a crash, so the
// next start still restores the saved copy.
#pragma once

bool run_marker_present(const char *dir);
// Before the library empties the persistent file (init_snmp).
void mark_run_started(const char *dir);
// After the final store: stored_file reaches the disk before the marker goes.
void mark_run_ended(const char *dir, const char *stored_file);
