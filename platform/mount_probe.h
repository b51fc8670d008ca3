// SPDX-License-Identifier: Apache-2.0
// statvfs of every mount point, off the main thread and with a deadline.
// A mount whose call has not returned when a round's deadline passes is
// left unanswered and counted stuck: it gets no new call until that one
// returns (one waiting call, and so one parked thread, per mount however
// long it hangs) and is asked again in the first round after. One log line
// when a mount sticks, one when it answers again. The bookkeeping is the
// main thread's alone: it changes in stat_all and in the done parts that
// offloop::drain runs there.
#pragma once

#include <sys/statvfs.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// How long one round (a file system table rebuild) may wait for its calls.
// A request that reaches the daemon as a rebuild meets a new hang waits this
// much longer; 250 ms leaves that request, and the rest of the rebuild,
// well inside the master's AgentX time-out (1 s by default, after which it
// retries, then drops the subagent), while a live file server, even a slow
// one across a WAN, answers a statvfs in far less.
constexpr int kStatDeadlineMs = 250;

struct StatAnswer {
    bool answered = false; // false: no answer in time, or an earlier call still waits
    int rc = -1;           // what statvfs returned
    struct statvfs vfs = {};
};

class MountProbe {
  public:
    using Call = int (*)(const char *path, struct statvfs *vfs);
    using Clock = int64_t (*)(); // monotonic milliseconds, read from any thread
    MountProbe(Call call, int deadline_ms, Clock clock);

    // One answer per path, in order. Returns once every call has answered,
    // or at the deadline, or as soon as every thread waits on a hung mount.
    std::vector<StatAnswer> stat_all(const std::vector<std::string> &paths);
    // Mount points whose call is still out.
    size_t stuck() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

// The daemon's: statvfs, kStatDeadlineMs.
MountProbe &mount_probe();

} // namespace platform
