// SPDX-License-Identifier: Apache-2.0
// The thread pool beside the main loop: its cap, where done parts run, and
// the completion descriptor after the stop. These start threads: they also
// run under ThreadSanitizer, in a build of their own (TEMHOSTD_TSAN).
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/offloop.h"

namespace {

// Jobs that wait until opened; never destroyed, as a job may still be
// leaving when the tests end.
struct Gate {
    std::mutex mu;
    std::condition_variable opened;
    bool open = false;
} &g_gate = *new Gate;

void wait_at_gate() {
    std::unique_lock<std::mutex> lock(g_gate.mu);
    g_gate.opened.wait(lock, [] { return g_gate.open; });
}

void open_gate(bool open) {
    std::lock_guard<std::mutex> lock(g_gate.mu);
    g_gate.open = open;
    g_gate.opened.notify_all();
}

// Until done() holds, draining on the way; false if it never does.
template <typename F> bool drain_until(F done) {
    for (int i = 0; i < 2000 && !done(); ++i) {
        platform::offloop::wait(5);
    }
    return done();
}

// With every thread in a job, run refuses the next one and starts no
// thread past the cap; once the jobs return, each done part runs once, on
// the main thread, and run takes jobs again.
TEST(Offloop, ThreadCapRefusesThenRecovers) {
    open_gate(false);
    const std::thread::id main = std::this_thread::get_id();
    std::atomic<size_t> done_here{0}, done_elsewhere{0};
    const auto done = [&] { ++(std::this_thread::get_id() == main ? done_here : done_elsewhere); };
    size_t accepted = 0;
    while (accepted <= platform::offloop::kMaxThreads &&
           platform::offloop::run(wait_at_gate, done)) {
        ++accepted;
    }
    EXPECT_LE(accepted, platform::offloop::kMaxThreads) << "never refused";
    EXPECT_LE(platform::offloop::threads(), platform::offloop::kMaxThreads);
    EXPECT_FALSE(platform::offloop::run([] {}, nullptr)) << "still full";

    open_gate(true);
    EXPECT_TRUE(drain_until([&] { return done_here.load() == accepted; }));
    EXPECT_EQ(0u, done_elsewhere.load());
    std::atomic<bool> ran{false};
    ASSERT_TRUE(platform::offloop::run([&] { ran = true; }, nullptr));
    EXPECT_TRUE(drain_until([&] { return ran.load(); }));
    EXPECT_EQ(accepted, done_here.load()) << "each done part once";
}

// After close_completion_fd a job that finishes rings nothing: the number
// the descriptor had may belong to another file by then. Its done part
// still runs from drain.
TEST(Offloop, NoRingAfterTheDescriptorIsClosed) {
    const int fd = platform::offloop::completion_fd();
    ASSERT_GE(fd, 0);
    const int other = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    ASSERT_GE(other, 0);
    platform::offloop::close_completion_fd();
    ASSERT_EQ(fd, dup2(other, fd)) << "another file at the old number";
    close(other);

    std::atomic<bool> worked{false}, done{false};
    ASSERT_TRUE(platform::offloop::run([&] { worked = true; }, [&] { done = true; }));
    // A job leaves busy() and rings in one step under the pool's lock,
    // which threads() takes: past both, a ring would be there to read.
    for (int i = 0; i < 2000 && !(worked && platform::offloop::busy() == 0); ++i) {
        usleep(1000);
    }
    platform::offloop::threads();
    uint64_t count = 0;
    EXPECT_EQ(-1, read(fd, &count, sizeof(count))) << "rang " << count;
    EXPECT_EQ(EAGAIN, errno);
    for (int i = 0; i < 2000 && !done; ++i) {
        platform::offloop::drain();
        usleep(1000);
    }
    EXPECT_TRUE(done);
    close(fd);
}

} // namespace
