// SPDX-License-Identifier: Apache-2.0
// The statvfs rounds beside the main loop, over calls that never return,
// return late, slowly or at once. These start threads: they also run under
// ThreadSanitizer, in a build of their own (TEMHOSTD_TSAN).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/mount_probe.h"
#include "platform/notice.h"
#include "platform/offloop.h"

namespace {

// Never destroyed: a call may still be on its way out when the tests end.
struct Calls {
    std::mutex mu;
    std::condition_variable opened;
    std::set<std::string> hanging; // a call made now waits until its path is released
    std::set<std::string> released;
    std::map<std::string, int> made, returned;
} &g = *new Calls;
std::vector<std::string> g_notices;
std::atomic<int64_t> g_skew{0};

int64_t skewed_clock() {
    return platform::monotonic_ms() + g_skew.load();
}

// A path in g.hanging when the call is made waits until it is released;
// "slow..." takes 10 ms; "gone" fails; the rest answer with their name's
// length as their block count.
int fake_statvfs(const char *path, struct statvfs *vfs) {
    const std::string p = path;
    std::unique_lock<std::mutex> lock(g.mu);
    ++g.made[p];
    if (g.hanging.count(p)) {
        g.opened.wait(lock, [&] { return g.released.count(p) > 0; });
    }
    if (p.compare(0, 4, "slow") == 0) {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        lock.lock();
    }
    ++g.returned[p];
    *vfs = {};
    vfs->f_blocks = p.size();
    return p == "gone" ? -1 : 0;
}

void hang(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    g.hanging.insert(path);
}

void release(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    g.released.insert(path);
    g.opened.notify_all();
}

// A mount that hangs only for the calls made while it hangs: the next
// call answers (a new mount at its path), the earlier one still waits.
void recover(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    g.hanging.erase(path);
}

int calls(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    return g.made[path];
}

int returned(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    return g.returned[path];
}

struct Bed {
    explicit Bed(platform::MountProbe::Limits limits) : probe(fake_statvfs, skewed_clock, limits) {
        g_notices.clear();
        platform::set_notice_sink([](int, const char *line) { g_notices.push_back(line); });
    }
    ~Bed() {
        platform::set_notice_sink(nullptr);
        std::lock_guard<std::mutex> lock(g.mu);
        g.released.insert(g.hanging.begin(), g.hanging.end());
        g.opened.notify_all();
    }
    // One character per mount: its block count, '-' no answer, '!' failed.
    // A round that must not wait for its deadline is given most_ms.
    std::string round(const std::vector<platform::MountId> &mounts, int64_t most_ms = 100000) {
        const int64_t start = platform::monotonic_ms();
        std::string got;
        for (const platform::StatAnswer &a : probe.stat_all(mounts)) {
            got += !a.answered ? "-" : a.rc != 0 ? "!" : std::to_string(a.vfs.f_blocks);
        }
        EXPECT_LE(platform::monotonic_ms() - start, most_ms);
        return got;
    }
    platform::MountProbe probe;
};

std::vector<platform::MountId> mounts(const std::vector<std::string> &paths) {
    std::vector<platform::MountId> m;
    for (const std::string &p : paths) {
        m.push_back({p, "dev", "fs"});
    }
    return m;
}

// Slow mounts are all answered in one round; a mount whose call is out
// keeps its last answer until the call passes the limit, then it is
// stuck: left out, logged once, never asked twice, and answered again
// once the call returns. Rounds after the first do not wait for it.
TEST(MountProbe, SlowLateAndStuckMountsOverRounds) {
    Bed bed({300, 2000, 16, 8});
    hang("hang");
    hang("late");
    std::vector<std::string> paths = {"a", "hang", "bb", "late", "gone", "c", "flaky"};
    for (int i = 10; i < 50; ++i) {
        paths.push_back("slow" + std::to_string(i));
    }
    const std::string slow(40, '6');
    EXPECT_EQ("1-2-!15" + slow, bed.round(mounts(paths)));
    hang("flaky");
    EXPECT_EQ("1-2-!15" + slow, bed.round(mounts(paths))) << "flaky keeps its answer";
    EXPECT_EQ("1-2-!15" + slow, bed.round(mounts(paths), 250));
    EXPECT_EQ(1, calls("hang"));
    EXPECT_EQ(2, calls("flaky"));
    EXPECT_TRUE(g_notices.empty()) << g_notices[0];

    g_skew += 2000;
    EXPECT_EQ("1-2-!1-" + slow, bed.round(mounts(paths), 250));
    EXPECT_EQ(3u, bed.probe.stuck());
    EXPECT_EQ(1, calls("hang"));
    ASSERT_EQ(3u, g_notices.size());
    EXPECT_EQ("File system hang does not answer within 2.0 s: left out of the file system table "
              "until it does\n",
              g_notices[0]);

    release("late");
    // Until late's call has returned and its thread has left the round
    // (only then is the answer there for the next): hang's and flaky's
    // threads stay in their calls.
    for (int i = 0; i < 500 && (returned("late") == 0 || bed.probe.threads() > 2); ++i) {
        platform::offloop::wait(10);
    }
    g_skew += 1000;
    EXPECT_EQ("1-24!1-" + slow, bed.round(mounts(paths), 250));
    EXPECT_EQ(2, calls("late"));
    ASSERT_EQ(4u, g_notices.size());
    EXPECT_EQ(0u, g_notices[3].find("File system late answers again after ")) << g_notices[3];
    EXPECT_EQ(2u, bed.probe.stuck());
}

// Hung mounts up to the bound leave every other mount answered, and a new
// mount at a stuck mount's path is asked at once. Past the bound, the
// threads stay bounded, the mounts asked before keep their answers, and
// the log counts the ones left out.
TEST(MountProbe, HungMountsUpToAndBeyondTheThreadBoundAndARemount) {
    Bed bed({300, 1000, 2, 3});
    for (const char *p : {"h0", "h1", "h2", "h3", "h4", "h5"}) {
        hang(p);
    }
    std::vector<platform::MountId> table = mounts({"h0", "h1", "h2", "a", "b"});
    EXPECT_EQ("---11", bed.round(table));
    EXPECT_EQ("---11", bed.round(table, 250));
    EXPECT_EQ(1, calls("h0"));
    EXPECT_LE(bed.probe.threads(), 5u);

    recover("h0");
    table[0].source = "elsewhere";
    EXPECT_EQ("2--11", bed.round(table, 250)) << "the new mount at h0";
    EXPECT_EQ(2, calls("h0"));

    for (const char *p : {"h3", "h4", "h5"}) {
        table.push_back({p, "dev", "fs"});
    }
    g_skew += 1000;
    const size_t before = g_notices.size();
    EXPECT_EQ("2--11---", bed.round(table));
    EXPECT_EQ("2--11---", bed.round(table, 250));
    EXPECT_LE(bed.probe.threads(), 5u);
    EXPECT_EQ(0, calls("h5"));
    ASSERT_EQ(before + 3, g_notices.size()) << g_notices.back();
    EXPECT_EQ("All 5 threads for file system queries wait on slow or hung file systems: 1 mount "
              "points left out\n",
              g_notices.back());
}

} // namespace
