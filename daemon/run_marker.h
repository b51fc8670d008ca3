// SPDX-License-Identifier: Apache-2.0
// Ours, around the pid file's crash test and the saved copy of the
// persistent file:
// - a marker on persistent storage (the persistent file's directory),
//   present from start-up until the clean stop has stored the persistent
//   file. Unlike the pid file, which lives on the run directory's tmpfs, it
//   outlives a reboot after a crash, so the next start still restores the
//   saved copy;
// - the roll-back to the saved copy, which never takes the SNMPv3
//   engineBoots back to a value a run has already used;
// - the end of a run: the final store read back, then the run files
//   removed in the one order that a kill at any step cannot turn into a
//   roll-back of a completed store.
#pragma once

#include <string>
#include <vector>

struct RunFiles {
    const char *dir; // the persistent directory: the marker lives there
    const char *pid_file;
    const char *persistent;
    const char *saved_copy;
};

bool run_marker_present(const char *dir);
// Before the library empties the persistent file (init_snmp). Also has the
// library report its own lines at each store (lines_of_last_store).
void mark_run_started(const char *dir);

// A start after a run that did not stop cleanly: puts the saved copy back
// as the persistent file. The dead run has used one engineBoots more than
// the copy holds, and the library adds one to what it reads: the copy's
// engineBoots lines are raised by one first, so the next run uses a value
// no run has used. Without a saved copy (the last run was killed after its
// store had completed) the persistent file is linked as the copy.
void roll_back_to_saved_copy(const RunFiles &files);

// The steps of the end of a run, after the library's final store, in order.
enum class EndStep { check_store, drop_saved_copy, drop_marker, drop_pid_file, release_lock };
// Test seam: called before each step; false ends the run there, as a kill
// would. Null (the default) runs every step.
void set_end_step_hook(bool (*hook)(EndStep step));

// The end of a run: reads the persistent file back. When it holds every
// line stored (and reaches the disk), removes the saved copy, the marker
// and the pid file, in that order, and closes *pid_fd (the lock). When not
// (disk full, I/O error, read-only), logs one error line naming the file
// and the cause and keeps them all, so that the next start rolls back.
// The copy's removal completes the store (true): a kill before it rolls
// back, a kill after it keeps the stored file.
bool end_run(const RunFiles &files, const std::vector<std::string> &stored, int *pid_fd);

// Every line the last store wrote that the daemon can name: its own (the
// MIB modules') and the library's engineBoots and oldEngineID.
std::vector<std::string> lines_of_last_store(void);
