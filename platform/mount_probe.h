// SPDX-License-Identifier: Apache-2.0
// statvfs of every mount point, off the main thread, with a deadline per
// round and a limit per mount. A round (a file system table rebuild) makes
// its calls while the mount table is read, on as many threads as it takes
// to finish in time, and waits at most round_ms for mounts it has no
// answer of, a fifth of that for the others. A mount whose call is still
// out then keeps its last answer until that call is stuck_ms old: only then
// is it stuck, left out and logged, once. A mount gets no new call while
// one is out, so each hung mount holds one parked thread and no more; the
// threads parked in calls are at most hung_threads, and a round always has
// round_threads more for the others. The bookkeeping follows the mount
// (its source, type and path), so that a new mount at a stuck mount's path
// is asked at once. It is the main thread's alone: it changes in stat_all.
#pragma once

#include <sys/statvfs.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// How long one rebuild may wait for its calls. A request that reaches the
// daemon during a rebuild waits this much longer at most; 250 ms leaves it,
// and the rest of the rebuild, well inside the master's AgentX time-out
// (1 s by default, after which it retries, then drops the subagent).
constexpr int kStatDeadlineMs = 250;
// How long a mount's call may be out before the mount counts as stuck.
// Until then its last answer is served: a file server that is slow for a
// few seconds (a failover, a busy disk) keeps its row and its figures, as
// node_exporter's 5 s mount timeout keeps its metrics.
constexpr int kStuckAfterMs = 5000;
// Threads asking the mounts of one rebuild at the same time: 16 calls of
// 5 ms each finish 800 mounts in the time a rebuild may wait.
constexpr size_t kRoundThreads = 16;
// Threads that may wait in calls older than a rebuild, one per slow or hung
// mount. Past that many hung mounts, each further one takes a round thread.
constexpr size_t kHungThreads = 256;

struct StatAnswer {
    bool answered = false; // false: no answer (yet), or stuck
    int rc = -1;           // what statvfs returned
    struct statvfs vfs = {};
};

// A mount as the mount table names it.
struct MountId {
    std::string path;
    std::string source;
    std::string type;
};

class MountProbe {
  public:
    using Call = int (*)(const char *path, struct statvfs *vfs);
    using Clock = int64_t (*)(); // monotonic milliseconds, read from any thread
    struct Limits {
        int round_ms = kStatDeadlineMs;
        int stuck_ms = kStuckAfterMs;
        size_t round_threads = kRoundThreads;
        size_t hung_threads = kHungThreads;
    };
    MountProbe(Call call, Clock clock, Limits limits);

    // One answer per mount, in order: this round's, or the last one while
    // the mount's call is out and younger than stuck_ms. Returns once every
    // call has answered, or at round_ms, or when no thread is left to ask
    // the rest.
    std::vector<StatAnswer> stat_all(const std::vector<MountId> &mounts);
    // The same over the mounts next() gives until it gives none, each
    // valid until the call returns; the calls begin while they come.
    std::vector<StatAnswer> stat_all(const std::function<const MountId *()> &next);
    // Mounts of the last round past their limit.
    size_t stuck() const;
    // This probe's threads now: in a call or walking a round.
    size_t threads() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

// The daemon's: statvfs and the limits above.
MountProbe &mount_probe();

} // namespace platform
