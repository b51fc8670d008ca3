// SPDX-License-Identifier: Apache-2.0
#include "platform/offloop.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <deque>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/guard.h"
#include "platform/notice.h"

namespace platform {
namespace offloop {

namespace {

// A system call and the few frames around it need little stack.
constexpr size_t kStackBytes = 512 * 1024;

struct Job {
    std::function<void()> work;
    std::function<void()> done;
};

// Never destroyed: a thread that returns from a hung call while the process
// exits must still find it (nothing joins the threads, and exit() must not
// wait for one parked in the kernel).
struct Pool {
    std::mutex mu;
    std::condition_variable ready;
    std::deque<Job> queue;                      // waiting for a thread
    std::deque<std::function<void()>> finished; // done parts for the main thread
    size_t threads = 0;
    size_t idle = 0;
    std::atomic<size_t> busy{0}; // threads in a job, read without mu at the exit
    int fd = -1;
};

Pool &pool() {
    static Pool *p = new Pool;
    return *p;
}

void ring(Pool &p) {
    if (p.fd >= 0) {
        const uint64_t one = 1;
        ssize_t n = write(p.fd, &one, sizeof(one));
        (void)n; // a counter at its limit is readable anyway
    }
}

void *serve(void *) {
    Pool &p = pool();
    std::unique_lock<std::mutex> lock(p.mu);
    for (;;) {
        ++p.idle;
        p.ready.wait(lock, [&] { return !p.queue.empty(); });
        --p.idle;
        Job job = std::move(p.queue.front());
        p.queue.pop_front();
        ++p.busy;
        lock.unlock();
        c_call(0, [&] {
            job.work();
            return 0;
        });
        lock.lock();
        --p.busy;
        c_call(0, [&] {
            p.finished.push_back(std::move(job.done));
            return 0;
        });
        ring(p);
    }
}

// With p.mu held.
bool start_thread(Pool &p) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) {
        return false;
    }
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, kStackBytes);
    // Signals stay with the main thread: they must end its wait, and a call
    // parked in a hung file system has nothing to do with them.
    sigset_t all, saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved);
    pthread_t thread;
    const bool started = pthread_create(&thread, &attr, serve, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    pthread_attr_destroy(&attr);
    if (started) {
        ++p.threads;
    }
    return started;
}

} // namespace

bool run(std::function<void()> work, std::function<void()> done) {
    return c_call(false, [&] {
        Pool &p = pool();
        std::lock_guard<std::mutex> lock(p.mu);
        if (p.idle <= p.queue.size() && (p.threads >= kMaxThreads || !start_thread(p))) {
            return false;
        }
        p.queue.push_back(Job{std::move(work), std::move(done)});
        p.ready.notify_one();
        return true;
    });
}

int completion_fd() {
    Pool &p = pool();
    std::lock_guard<std::mutex> lock(p.mu);
    if (p.fd < 0) {
        p.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    return p.fd;
}

void drain() {
    TEMHOSTD_MAIN_THREAD_ONLY();
    Pool &p = pool();
    std::deque<std::function<void()>> finished;
    {
        std::lock_guard<std::mutex> lock(p.mu);
        uint64_t count;
        if (p.fd >= 0 && read(p.fd, &count, sizeof(count)) < 0) {
            // nothing was signalled
        }
        finished.swap(p.finished);
    }
    for (std::function<void()> &done : finished) {
        c_call(0, [&] {
            if (done) {
                done();
            }
            return 0;
        });
    }
}

void wait(int ms) {
    struct pollfd pfd = {completion_fd(), POLLIN, 0};
    const int64_t until = monotonic_ms() + ms;
    for (int64_t left = ms; left > 0; left = until - monotonic_ms()) {
        if (poll(&pfd, pfd.fd >= 0 ? 1 : 0, static_cast<int>(left)) >= 0 || errno != EINTR) {
            break;
        }
    }
    drain();
}

size_t threads() {
    Pool &p = pool();
    std::lock_guard<std::mutex> lock(p.mu);
    return p.threads;
}

size_t busy() {
    return pool().busy.load();
}

void close_completion_fd() {
    Pool &p = pool();
    std::lock_guard<std::mutex> lock(p.mu);
    if (p.fd >= 0) {
        close(p.fd);
        p.fd = -1;
    }
}

} // namespace offloop

// LeakSanitizer's check at the exit first stops every thread, and one
// waiting in a hung file system never stops: the exit would wait as long
// as the file system hangs. With a job under way the check is left out.
extern "C" int __lsan_is_turned_off() {
    return offloop::busy() > 0;
}

} // namespace platform
