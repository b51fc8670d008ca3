// SPDX-License-Identifier: Apache-2.0
#include "platform/mount_probe.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <unordered_map>
#include <mutex>
#include <syslog.h>

#include "platform/guard.h"
#include "platform/notice.h"
#include "platform/offloop.h"

namespace platform {

static_assert(kRoundThreads + kHungThreads <= offloop::kMaxThreads, "the pool holds them all");

namespace rounds {

enum : int { kWaiting, kCalling, kDone };

// One statvfs, shared by the main thread and the thread that makes it; it
// outlives its round while the call is out.
struct Ask {
    explicit Ask(std::string p) : path(std::move(p)) {}
    const std::string path;
    std::atomic<int> state{kWaiting};
    std::atomic<int64_t> since{0}; // when the call began
    int rc = -1;                   // these two are written before state turns kDone
    struct statvfs vfs = {};
};

// One round's calls: each thread takes the next one no thread has taken,
// until there is none or the round has ended.
struct Round {
    MountProbe::Call call;
    MountProbe::Clock clock;
    std::mutex mu;
    std::condition_variable more;
    std::vector<std::shared_ptr<Ask>> asks; // under mu; grows while the table is read
    size_t next = 0;                        // under mu
    bool sealed = false;                    // under mu: the table is read, asks is whole
    size_t idle = 0;                        // under mu: threads waiting for more asks
    bool open = true;                       // under mu
    std::atomic<size_t> done{0};
    std::shared_ptr<std::atomic<size_t>> calls_out; // the probe's, of every round
};

void walk(Round &r) {
    for (;;) {
        std::shared_ptr<Ask> ask;
        {
            std::unique_lock<std::mutex> lock(r.mu);
            while (r.open && !r.sealed && r.next >= r.asks.size()) {
                ++r.idle;
                r.more.wait(lock);
                --r.idle;
            }
            if (!r.open || r.next >= r.asks.size()) {
                return;
            }
            ask = r.asks[r.next++];
            ask->since.store(r.clock());
            ask->state.store(kCalling);
            ++*r.calls_out;
        }
        struct statvfs vfs;
        const int rc = r.call(ask->path.c_str(), &vfs);
        ask->rc = rc;
        ask->vfs = vfs;
        ask->state.store(kDone);
        --*r.calls_out;
        r.done.fetch_add(1);
    }
}

} // namespace rounds

using rounds::Ask;
using rounds::Round;

struct MountProbe::State {
    Call call;
    Clock clock;
    Limits limits;
    struct Mount {
        std::shared_ptr<Ask> ask; // the call out, if any
        bool has_last = false;
        StatAnswer last;
        bool stuck = false;   // logged as stuck, its call still out
        uint64_t round = 0;   // the last round whose table held it
        int64_t answered = 0; // when its last call returned
    };
    struct Same {
        bool operator()(const MountId &a, const MountId &b) const {
            return a.path == b.path && a.source == b.source && a.type == b.type;
        }
    };
    struct Hash {
        size_t operator()(const MountId &m) const {
            const std::hash<std::string> h;
            return h(m.path) ^ (h(m.source) * 31) ^ (h(m.type) * 131);
        }
    };
    // By source, type and path: a new mount at a stuck mount's path is
    // another mount.
    std::unordered_map<MountId, Mount, Hash, Same> mounts;
    uint64_t round = 0;
    // Threads taken from the pool and not yet given back: each gives its
    // own back as it leaves a round, so that the next round counts it free.
    std::shared_ptr<std::atomic<size_t>> jobs = std::make_shared<std::atomic<size_t>>(0);
    // Calls made and not returned, each holding a thread.
    std::shared_ptr<std::atomic<size_t>> calls_out = std::make_shared<std::atomic<size_t>>(0);
    size_t short_of_threads = 0; // mounts the last round could not ask, nor had answers for

    // The call of m has returned: its answer becomes the last one.
    void take_answer(const std::string &path, Mount &m, int64_t now) {
        const Ask &a = *m.ask;
        m.last = StatAnswer{true, a.rc, a.vfs};
        m.has_last = true;
        m.answered = now;
        if (m.stuck) {
            notice(LOG_INFO, "File system %s answers again after %.1f s\n", path.c_str(),
                   static_cast<double>(now - a.since.load()) / 1000.0);
            m.stuck = false;
        }
        m.ask.reset();
    }
};

MountProbe::MountProbe(Call call, Clock clock, Limits limits) : state_(std::make_shared<State>()) {
    state_->call = call;
    state_->clock = clock;
    state_->limits = limits;
}

size_t MountProbe::stuck() const {
    size_t n = 0;
    for (const auto &m : state_->mounts) {
        n += m.second.stuck;
    }
    return n;
}

size_t MountProbe::threads() const {
    return state_->jobs->load();
}

std::vector<StatAnswer> MountProbe::stat_all(const std::vector<MountId> &ids) {
    size_t i = 0;
    return stat_all([&]() -> const MountId * { return i < ids.size() ? &ids[i++] : nullptr; });
}

std::vector<StatAnswer> MountProbe::stat_all(const std::function<const MountId *()> &next) {
    TEMHOSTD_MAIN_THREAD_ONLY(); // the bookkeeping has no lock
    State &st = *state_;
    const Limits &lim = st.limits;
    const uint64_t round_no = ++st.round;
    std::vector<const MountId *> ids;
    std::vector<State::Mount *> mounts;
    auto round = std::make_shared<Round>();
    round->call = st.call;
    round->clock = st.clock;
    round->calls_out = st.calls_out;
    const int64_t start = st.clock();

    // A round not done after a tick spreads over round_threads threads,
    // and a thread whose call is out longer than a hand-off interval (a
    // slow or hung mount) is replaced: mounts behind those are still asked
    // in this round, and the round holds the main loop briefly.
    // A call out for a fifth of the round waits on a slow or hung mount:
    // it counts against hung_threads, and another thread takes its place.
    const int64_t tick = std::max(1, lim.round_ms / 25);
    const int64_t handoff = std::max(1, lim.round_ms / 5);
    const std::shared_ptr<std::atomic<size_t>> jobs = st.jobs;
    size_t threads = 0;     // of this round
    bool all_taken = false; // every thread this probe may have is taken
    // moving: the round's threads not waiting in a call; at most
    // round_threads of them, and those waiting count against hung_threads.
    const auto add_threads = [&](size_t count, size_t moving) {
        for (; count > 0 && moving < lim.round_threads; --count, ++moving) {
            // A thread that has just left a round is not counted: it is
            // the pool's again, if not yet idle.
            if (st.calls_out->load() + moving >= lim.round_threads + lim.hung_threads) {
                all_taken = true;
                return;
            }
            ++*jobs;
            const auto walk = [round, jobs] {
                rounds::walk(*round);
                --*jobs;
            };
            if (!offloop::run(walk, nullptr)) {
                --*jobs;
                all_taken = true;
                return;
            }
            ++threads;
        }
    };

    // The calls begin while the rest of the table is read: the mounts that
    // answered before go out in batches as they come, on two threads (the
    // table read and the calls then share the processors); new ones go
    // last, as those a round may have no time or thread left for are new
    // ones, or ones that hang already. The round then waits past the
    // hand-off interval only for those it must: new ones, and ones whose
    // last answer is getting old (left unasked by earlier rounds).
    std::vector<std::shared_ptr<Ask>> batch, untested, must;
    const auto hand_out = [&] {
        if (batch.empty()) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(round->mu);
            round->asks.insert(round->asks.end(), batch.begin(), batch.end());
        }
        batch.clear();
        round->more.notify_all();
        if (threads == 0) {
            add_threads(2, 0);
        }
    };
    while (const MountId *id = next()) {
        auto found = st.mounts.find(*id);
        State::Mount &m = found != st.mounts.end() ? found->second : st.mounts[*id];
        ids.push_back(id);
        mounts.push_back(&m);
        if (m.round == round_no) {
            continue; // listed twice: one call serves both
        }
        m.round = round_no;
        if (m.ask && m.ask->state.load() == rounds::kDone) {
            st.take_answer(id->path, m, start);
        }
        if (m.ask) {
            continue;
        }
        m.ask = std::make_shared<Ask>(id->path);
        if (!m.has_last) {
            untested.push_back(m.ask);
            must.push_back(m.ask);
            continue;
        }
        if (start - m.answered >= lim.stuck_ms / 2) {
            must.push_back(m.ask);
        }
        batch.push_back(m.ask);
        if (batch.size() == 256) {
            hand_out();
        }
    }
    batch.insert(batch.end(), untested.begin(), untested.end());
    hand_out();
    {
        std::lock_guard<std::mutex> lock(round->mu);
        round->sealed = true;
    }
    round->more.notify_all();
    const size_t n = round->asks.size(); // no more once sealed
    // Unmounted: forgotten (a call still out keeps only its thread).
    for (auto it = st.mounts.begin(); it != st.mounts.end();) {
        it = it->second.round == round_no ? std::next(it) : st.mounts.erase(it);
    }

    for (;;) {
        const int64_t now = st.clock();
        const int64_t elapsed = now - start;
        const size_t done = round->done.load();
        if (done == n || elapsed >= lim.round_ms) {
            break;
        }
        // Past the hand-off interval a round waits only for mounts it has
        // no answer of yet: the others keep their last one meanwhile.
        if (elapsed >= handoff && std::all_of(must.begin(), must.end(), [](const auto &a) {
                return a->state.load() == rounds::kDone;
            })) {
            break;
        }
        size_t taken;
        {
            std::lock_guard<std::mutex> lock(round->mu);
            taken = round->next;
        }
        if (taken < n && elapsed > 0) {
            size_t parked = 0;
            for (size_t i = 0; i < taken; ++i) {
                const Ask &a = *round->asks[i];
                parked += a.state.load() == rounds::kCalling && now - a.since.load() >= handoff;
            }
            const size_t moving = threads - std::min(threads, parked);
            const size_t before = threads;
            // Spread when the pace so far would not finish within the
            // hand-off interval (calls that wait, not ones that keep the
            // processors busy).
            if (elapsed >= tick && (done == 0 || static_cast<size_t>(elapsed) * n >
                                                     static_cast<size_t>(handoff) * done)) {
                add_threads(n - taken, moving); // what a thread has not done in a tick, 16 may
            }
            if (all_taken && moving == 0 && threads == before) {
                break; // every thread waits on a slow or hung mount
            }
        }
        offloop::wait(static_cast<int>(std::min(tick, lim.round_ms - elapsed)));
    }
    {
        std::lock_guard<std::mutex> lock(round->mu);
        round->open = false;
    }
    round->more.notify_all();

    const int64_t now = st.clock();
    std::vector<StatAnswer> answers(ids.size());
    size_t left_out = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
        State::Mount &m = *mounts[i];
        if (m.ask && m.ask->state.load() == rounds::kDone) {
            st.take_answer(ids[i]->path, m, now);
        } else if (m.ask && m.ask->state.load() == rounds::kWaiting) {
            m.ask.reset(); // not asked: no thread was free in time
            left_out += !m.has_last;
        } else if (m.ask && now - m.ask->since.load() >= lim.stuck_ms) {
            if (!m.stuck) {
                notice(LOG_WARNING,
                       "File system %s does not answer within %.1f s: left out of the file "
                       "system table until it does\n",
                       ids[i]->path.c_str(), lim.stuck_ms / 1000.0);
                m.stuck = true;
            }
            continue;
        }
        if (m.has_last) {
            answers[i] = m.last;
        }
    }
    if (left_out > 0 && left_out != st.short_of_threads && !all_taken) {
        notice(LOG_WARNING, "%zu mount points not asked within %d ms: left out of this rebuild\n",
               left_out, lim.round_ms);
    } else if (left_out > 0 && left_out != st.short_of_threads) {
        notice(LOG_WARNING,
               "All %zu threads for file system queries wait on slow or hung file systems: %zu "
               "mount points left out\n",
               jobs->load(), left_out);
    } else if (left_out == 0 && st.short_of_threads > 0) {
        notice(LOG_INFO, "Every mount point is asked again\n");
    }
    st.short_of_threads = left_out;
    return answers;
}

MountProbe &mount_probe() {
    // Never destroyed, like the pool: a call may return during the exit.
    static MountProbe *probe = new MountProbe(::statvfs, monotonic_ms, MountProbe::Limits{});
    return *probe;
}

} // namespace platform
