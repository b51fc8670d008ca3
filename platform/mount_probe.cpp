// SPDX-License-Identifier: Apache-2.0
#include "platform/mount_probe.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <syslog.h>

#include "platform/guard.h"
#include "platform/offloop.h"

namespace platform {

namespace rounds {

enum : int { kFree, kCalling, kDone };

struct Slot {
    std::atomic<int> state{kFree};
    std::atomic<int64_t> since{0}; // when its call began
    int rc = -1;
    struct statvfs vfs = {};
};

// One round's calls, shared by the threads that make them: each takes the
// next slot no thread has taken. Its paths and slots go when the round
// ends: a thread still in a call then holds its own copy of the path and
// its own answer, and only reports that it came (late).
struct Round {
    MountProbe::Call call;
    MountProbe::Clock clock;
    std::mutex mu;
    bool open = true;               // the rest under mu
    size_t next = 0;                // the next slot no thread has taken
    std::vector<std::string> paths; // while open
    std::unique_ptr<Slot[]> slots;  // while open; their atomics are read without mu
    std::atomic<size_t> done{0};
    std::vector<size_t> late; // slots whose call returned after the end
};

void walk(Round &r) {
    for (;;) {
        size_t i;
        std::string path;
        {
            std::lock_guard<std::mutex> lock(r.mu);
            if (!r.open || r.next >= r.paths.size()) {
                return;
            }
            i = r.next++;
            path = r.paths[i];
            r.slots[i].since.store(r.clock());
            r.slots[i].state.store(kCalling);
        }
        struct statvfs vfs;
        const int rc = r.call(path.c_str(), &vfs);
        std::lock_guard<std::mutex> lock(r.mu);
        if (r.open) {
            r.slots[i].rc = rc;
            r.slots[i].vfs = vfs;
            r.slots[i].state.store(kDone);
            r.done.fetch_add(1);
        } else {
            r.late.push_back(i);
        }
    }
}

} // namespace rounds

using rounds::Round;
using rounds::Slot;

struct MountProbe::State {
    Call call;
    int deadline_ms;
    Clock clock;
    struct Stuck {
        const Round *round;
        size_t slot;
        int64_t since;
    };
    std::map<std::string, Stuck> stuck;
    bool short_of_threads = false;

    // A thread of r is done: the stuck calls of r that have returned since
    // are back for the next round.
    void answered_late(Round &r) {
        std::vector<size_t> late;
        {
            std::lock_guard<std::mutex> lock(r.mu);
            late.swap(r.late);
        }
        for (auto it = stuck.begin(); it != stuck.end();) {
            if (it->second.round != &r ||
                std::find(late.begin(), late.end(), it->second.slot) == late.end()) {
                ++it;
                continue;
            }
            notice(LOG_INFO, "File system %s answers again after %.1f s\n", it->first.c_str(),
                   static_cast<double>(clock() - it->second.since) / 1000.0);
            it = stuck.erase(it);
        }
    }
};

MountProbe::MountProbe(Call call, int deadline_ms, Clock clock)
    : state_(std::make_shared<State>(State{call, deadline_ms, clock, {}, false})) {}

size_t MountProbe::stuck() const {
    return state_->stuck.size();
}

std::vector<StatAnswer> MountProbe::stat_all(const std::vector<std::string> &paths) {
    State &st = *state_;
    std::vector<StatAnswer> answers(paths.size());
    auto round = std::make_shared<Round>();
    round->call = st.call;
    round->clock = st.clock;
    std::vector<size_t> answer_of; // slot -> its path's answer
    for (size_t i = 0; i < paths.size(); ++i) {
        if (st.stuck.count(paths[i]) == 0) {
            round->paths.push_back(paths[i]);
            answer_of.push_back(i);
        }
    }
    const size_t n = round->paths.size();
    if (n == 0) {
        return answers;
    }
    round->slots.reset(new Slot[n]);

    // A call that has not returned after a hand-off interval is left to its
    // thread, and another thread carries on with the slots no thread has
    // taken: mounts behind a hung one are still answered in this round.
    const int64_t handoff = std::max(1, st.deadline_ms / 25);
    const int64_t start = st.clock();
    std::weak_ptr<State> owner = state_;
    size_t threads = 0;
    bool more_threads = true;
    auto add_thread = [&] {
        more_threads = offloop::run([round] { rounds::walk(*round); },
                                    [owner, round] {
                                        if (auto state = owner.lock()) {
                                            state->answered_late(*round);
                                        }
                                    });
        threads += more_threads ? 1 : 0;
        return more_threads;
    };
    add_thread();
    for (;;) {
        const int64_t now = st.clock();
        if (round->done.load() == n || now - start >= st.deadline_ms) {
            break;
        }
        size_t taken;
        {
            std::lock_guard<std::mutex> lock(round->mu);
            taken = round->next;
        }
        if (taken < n) {
            size_t parked = 0;
            for (size_t i = 0; i < taken; ++i) {
                const Slot &s = round->slots[i];
                parked += s.state.load() == rounds::kCalling && now - s.since.load() >= handoff;
            }
            if (threads <= parked && !add_thread()) {
                break; // every thread waits on a hung mount
            }
        }
        offloop::wait(static_cast<int>(std::min(handoff, st.deadline_ms - (now - start))));
    }

    size_t untried = 0;
    std::lock_guard<std::mutex> lock(round->mu);
    round->open = false;
    for (size_t i = 0; i < n; ++i) {
        const Slot &s = round->slots[i];
        const std::string &path = round->paths[i];
        switch (s.state.load()) {
        case rounds::kFree:
            ++untried; // no call made: asked in the next round
            break;
        case rounds::kCalling:
            st.stuck[path] = State::Stuck{round.get(), i, s.since.load()};
            notice(LOG_WARNING,
                   "File system %s does not answer within %d ms: left out of the file system "
                   "table until it does\n",
                   path.c_str(), st.deadline_ms);
            break;
        default:
            answers[answer_of[i]] = StatAnswer{true, s.rc, s.vfs};
        }
    }
    // What a parked call keeps is its thread, not the round's memory.
    round->paths = std::vector<std::string>();
    round->slots.reset();
    if (untried > 0 && !more_threads && !st.short_of_threads) {
        notice(LOG_WARNING,
               "All %zu threads for file system queries wait on hung file systems: %zu mount "
               "points left out until one answers\n",
               offloop::threads(), untried);
    }
    st.short_of_threads = untried > 0 && !more_threads;
    return answers;
}

MountProbe &mount_probe() {
    // Never destroyed, like the pool: a call may return during the exit.
    static MountProbe *probe = new MountProbe(::statvfs, kStatDeadlineMs, monotonic_ms);
    return *probe;
}

} // namespace platform
