// SPDX-License-Identifier: Apache-2.0
#include "platform/mount_probe.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <syslog.h>

#include "platform/guard.h"
#include "platform/offloop.h"

namespace platform {

namespace rounds {

enum : int { kFree, kCalling, kDone, kTaken };

struct Slot {
    std::atomic<int> state{kFree};
    std::atomic<int64_t> since{0}; // when its call began
    int rc = -1;
    struct statvfs vfs {};
};

// One round's calls, shared by the threads that make them: each takes the
// next slot no thread has taken. A thread parked in a call keeps it alive.
struct Round {
    MountProbe::Call call;
    MountProbe::Clock clock;
    std::vector<std::string> paths;
    std::unique_ptr<Slot[]> slots;
    std::atomic<size_t> next{0};
    std::atomic<size_t> done{0};
    std::vector<size_t> stuck; // main thread only: slots still in their call at the end
};

void walk(Round &r) {
    const size_t n = r.paths.size();
    for (size_t i; (i = r.next.fetch_add(1)) < n;) {
        Slot &s = r.slots[i];
        s.since.store(r.clock());
        int expected = kFree;
        if (!s.state.compare_exchange_strong(expected, kCalling)) {
            continue; // the round is over: asked again in the next
        }
        s.rc = r.call(r.paths[i].c_str(), &s.vfs);
        s.state.store(kDone);
        r.done.fetch_add(1);
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
    void answered_late(const Round &r) {
        for (size_t i : r.stuck) {
            auto it = stuck.find(r.paths[i]);
            if (r.slots[i].state.load() != rounds::kDone || it == stuck.end() ||
                it->second.round != &r || it->second.slot != i) {
                continue;
            }
            notice(LOG_INFO, "File system %s answers again after %.1f s\n", r.paths[i].c_str(),
                   static_cast<double>(clock() - it->second.since) / 1000.0);
            stuck.erase(it);
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
        const size_t taken = std::min(round->next.load(), n);
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
    for (size_t i = 0; i < n; ++i) {
        Slot &s = round->slots[i];
        int state = rounds::kFree;
        if (s.state.compare_exchange_strong(state, rounds::kTaken)) {
            ++untried; // no call made: asked in the next round
            continue;
        }
        if (state == rounds::kCalling && s.state.load() != rounds::kDone) {
            const std::string &path = round->paths[i];
            round->stuck.push_back(i);
            st.stuck[path] = State::Stuck{round.get(), i, s.since.load()};
            notice(LOG_WARNING,
                   "File system %s does not answer within %d ms: left out of the file system "
                   "table until it does\n",
                   path.c_str(), st.deadline_ms);
            continue;
        }
        StatAnswer &a = answers[answer_of[i]];
        a.answered = true;
        a.rc = s.rc;
        a.vfs = s.vfs;
    }
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
