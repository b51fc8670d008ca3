// SPDX-License-Identifier: Apache-2.0
// The statvfs rounds beside the main loop, over calls that never return,
// return late or answer at once. These start threads: they also run under
// ThreadSanitizer, in a build of their own (TEMHOSTD_TSAN).
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/mount_probe.h"
#include "platform/offloop.h"

namespace {

// Never destroyed: a call may still be on its way out when the tests end.
struct Calls {
    std::mutex mu;
    std::condition_variable opened;
    std::set<std::string> open; // gates of the calls that wait
    std::map<std::string, int> made;
} &g = *new Calls;
std::vector<std::string> g_notices;
std::atomic<int64_t> g_skew{0};

int64_t skewed_clock() {
    return platform::monotonic_ms() + g_skew.load();
}

// "hang" and "late" wait until their gate opens, "gone" fails, the rest
// answer with their name's length as their block count.
int fake_statvfs(const char *path, struct statvfs *vfs) {
    const std::string p = path;
    std::unique_lock<std::mutex> lock(g.mu);
    ++g.made[p];
    g.opened.wait(lock, [&] { return (p != "hang" && p != "late") || g.open.count(p); });
    *vfs = {};
    vfs->f_blocks = p.size();
    return p == "gone" ? -1 : 0;
}

void open_gate(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    g.open.insert(path);
    g.opened.notify_all();
}

int calls(const std::string &path) {
    std::lock_guard<std::mutex> lock(g.mu);
    return g.made[path];
}

// One round behind a hung mount answers every other mount and leaves the
// hung ones out at the deadline. Later rounds make no second call to a
// stuck mount and do not wait for it, with no new thread; a late answer is
// logged, and its mount is asked again in the next round.
TEST(MountProbe, HungAndLateMountsOverRounds) {
    struct OpenAtTheEnd {
        ~OpenAtTheEnd() { open_gate("late"), open_gate("hang"); }
    } open_at_the_end;
    platform::set_notice_sink([](int, const char *line) { g_notices.push_back(line); });
    platform::MountProbe probe(fake_statvfs, 300, skewed_clock);
    const std::vector<std::string> paths = {"a", "hang", "bb", "late", "gone", "c"};
    const auto round = [&](int64_t most_ms) {
        const int64_t start = platform::monotonic_ms();
        std::string got;
        for (const platform::StatAnswer &a : probe.stat_all(paths)) {
            got += !a.answered ? "-" : a.rc != 0 ? "!" : std::to_string(a.vfs.f_blocks);
        }
        EXPECT_LE(platform::monotonic_ms() - start, most_ms);
        return got;
    };
    EXPECT_EQ("1-2-!1", round(1000));
    EXPECT_EQ(2u, probe.stuck());
    const size_t threads = platform::offloop::threads();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("1-2-!1", round(100)) << i;
    }
    EXPECT_EQ(1, calls("hang"));
    EXPECT_EQ(1, calls("late"));
    EXPECT_EQ(threads, platform::offloop::threads());

    g_skew += 10000;
    open_gate("late");
    for (int i = 0; i < 100 && probe.stuck() > 1; ++i) {
        platform::offloop::wait(10);
    }
    EXPECT_EQ("1-24!1", round(100));
    EXPECT_EQ(2, calls("late"));
    ASSERT_EQ(3u, g_notices.size());
    EXPECT_EQ("File system hang does not answer within 300 ms: left out of the file system table "
              "until it does\n",
              g_notices[0]);
    EXPECT_EQ(0u, g_notices[1].find("File system late does not answer"));
    EXPECT_EQ(0u, g_notices[2].find("File system late answers again after 10.")) << g_notices[2];

    open_gate("hang");
    for (int i = 0; i < 100 && probe.stuck() > 0; ++i) {
        platform::offloop::wait(10);
    }
    EXPECT_EQ(0u, probe.stuck());
    platform::set_notice_sink(nullptr);
}

} // namespace
