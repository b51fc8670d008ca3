// SPDX-License-Identifier: Apache-2.0
// Work beside the main loop, for the one kind the loop cannot wait on
// through a descriptor: a statvfs on a file system whose server has stopped
// answering sits in the kernel for as long as it hangs. This is the only
// place that starts threads. A job's work runs on a pool thread; its done
// part then runs on the main thread, from drain(), which the loop calls
// when the completion descriptor turns readable. Nothing here may call the
// SNMP library (this library does not link it); lines for the log go
// through notice() (platform/notice.h), from the main thread only. Only
// the mount probe starts jobs, and only the daemon's glue drains them:
// nothing else includes this file.
#pragma once

#include <cstddef>
#include <functional>

namespace platform {
namespace offloop {

// Threads are started as jobs need them and then kept, waiting for the
// next: those asking the mounts of a rebuild and one per call that hangs
// (platform/mount_probe.h counts them). A cap, so that nothing piles up
// whatever the host does.
constexpr size_t kMaxThreads = 272;

// Runs work on an idle thread (a new one when none is idle); done runs on
// the main thread once work has returned. False, and nothing run, when all
// kMaxThreads are busy.
bool run(std::function<void()> work, std::function<void()> done);

// Readable once some job has finished; made on first use.
int completion_fd();
// Runs the done part of every finished job (main thread).
void drain();
// Waits up to ms for a job to finish, then drains. A signal does not cut
// the wait short.
void wait(int ms);
// Threads there now: working, waiting in a call, or idle.
size_t threads();
// Threads in a job now.
size_t busy();
// At the stop: a job that finishes later rings nothing. Jobs still
// running are left to the end of the process, which does not wait for them.
void close_completion_fd();

} // namespace offloop
} // namespace platform
