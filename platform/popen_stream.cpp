// SPDX-License-Identifier: Apache-2.0
#include "platform/popen_stream.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/guard.h"
#include "platform/notice.h"

namespace platform {

const char *const kCommandEnvironment[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C",
                                           nullptr};

namespace {

// How long a killed program gets to end before it is left to the reaper.
constexpr int kKillGraceMs = 20;

// Main thread only: the killed programs not reaped yet, and the commands
// whose last run missed its deadline.
struct Killed {
    pid_t pid;
    std::string command;
};
std::vector<Killed> s_killed;
std::set<std::string> s_stuck;
void (*s_reaping_request)() = nullptr;

// Until pid has ended (true, its status in *status) or until the time given.
bool wait_end(pid_t pid, int pidfd, int64_t until, int *status) {
    for (;;) {
        const pid_t r = waitpid(pid, status, WNOHANG);
        if (r == pid || (r < 0 && errno != EINTR)) {
            return true;
        }
        const int64_t left = until - monotonic_ms();
        if (left <= 0) {
            return false;
        }
        // Without a pidfd (kernels before 5.3) the end is polled for.
        struct pollfd pfd = {pidfd, POLLIN, 0};
        poll(&pfd, pidfd >= 0 ? 1 : 0,
             static_cast<int>(pidfd >= 0 ? left : std::min<int64_t>(left, 2)));
    }
}

bool still_ending(const std::string &command) {
    reap_killed_programs();
    return std::any_of(s_killed.begin(), s_killed.end(),
                       [&](const Killed &k) { return k.command == command; });
}

} // namespace

bool split_plain_command(const char *command, std::vector<std::string> &words) {
    words.clear();
    bool in_word = false;
    for (const char *p = command; *p; ++p) {
        const char c = *p;
        if (c == ' ' || c == '\t') {
            in_word = false;
            continue;
        }
        if (!in_word) {
            words.emplace_back();
            in_word = true;
        }
        if (c == '\'') {
            const char *end = strchr(p + 1, '\'');
            if (!end) {
                return false;
            }
            words.back().append(p + 1, end);
            p = end;
        } else if (c == '\\' && p[1] && p[1] != '\n') {
            words.back() += *++p;
        } else if (strchr("|&;<>()$`\\\"*?[]#~=%{}!\n", c)) {
            return false;
        } else {
            words.back() += c;
        }
    }
    return !words.empty();
}

PopenStream::PopenStream(const char *command, int deadline_ms) : deadline_ms_(deadline_ms) {
    TEMHOSTD_MAIN_THREAD_ONLY();
    c_call(0, [&] {
        command_ = command;
        deadline_ = monotonic_ms() + deadline_ms;
        if (still_ending(command_)) {
            return 0;
        }
        std::vector<std::string> words;
        // A program that cannot be started directly goes to the shell after
        // all: it reports the failure as popen would (status 127, no output).
        if (!(split_plain_command(command, words) && words[0][0] == '/' && spawn(words))) {
            spawn({"/bin/sh", "-c", command});
        }
        return 0;
    });
}

bool PopenStream::spawn(const std::vector<std::string> &words) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    std::vector<char *> argv;
    for (const std::string &w : words) {
        argv.push_back(const_cast<char *>(w.c_str()));
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    // The daemon holds the AgentX socket, the log, the library's sockets and
    // pipes, not all of them close-on-exec: none of that reaches a program.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&defaults, sig);
    }
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    // A group of its own: a program that hangs is killed with all it started.
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                        POSIX_SPAWN_SETPGROUP);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(),
                               const_cast<char *const *>(kCommandEnvironment));
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    ::close(fds[1]);
    if (rc != 0) {
        ::close(fds[0]);
        return false;
    }
    pid_ = pid;
    fd_ = fds[0];
    fcntl(fd_, F_SETFL, O_NONBLOCK);
    pidfd_ = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    return true;
}

bool PopenStream::read_all(CommandOutput &output) {
    output.file_.reset();
    std::string &out = output.text_;
    out.clear();
    const bool ended = c_call(false, [&] {
        char chunk[4096];
        while (fd_ >= 0) {
            const ssize_t n = read(fd_, chunk, sizeof(chunk));
            if (n > 0) {
                out.append(chunk, static_cast<size_t>(n));
                continue;
            }
            if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
                return true;
            }
            const int64_t left = deadline_ - monotonic_ms();
            if (left <= 0) {
                return false;
            }
            struct pollfd pfd = {fd_, POLLIN, 0};
            poll(&pfd, 1, static_cast<int>(left)); // a signal: round again
        }
        return false;
    });
    if (fd_ < 0) {
        return false; // not started
    }
    ::close(fd_);
    fd_ = -1;
    if (!ended) {
        if (c_call(false, [&] { return s_stuck.insert(command_).second; })) {
            notice(LOG_WARNING,
                   "Command %s did not finish within %d ms: killed, and read as not run "
                   "until it finishes in time\n",
                   command_.c_str(), deadline_ms_);
        }
        kill_group();
        return false;
    }
    if (s_stuck.erase(command_) > 0) {
        notice(LOG_INFO, "Command %s finishes in time again\n", command_.c_str());
    }
    return true;
}

void PopenStream::kill_group() {
    kill(-pid_, SIGKILL);
    int status;
    if (!wait_end(pid_, pidfd_, monotonic_ms() + kKillGraceMs, &status)) {
        // Still in the kernel (a call on a hung file system): reaped later.
        c_call(0, [&] {
            s_killed.push_back(Killed{pid_, command_});
            return 0;
        });
        if (s_reaping_request) {
            s_reaping_request();
        }
    }
    pid_ = -1;
}

int PopenStream::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    int status = -1;
    if (pid_ >= 0 && !wait_end(pid_, pidfd_, deadline_, &status)) {
        status = -1;
        kill_group();
    }
    pid_ = -1;
    if (pidfd_ >= 0) {
        ::close(pidfd_);
        pidfd_ = -1;
    }
    return status;
}

std::vector<std::string> CommandOutput::lines() const {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text_.size();) {
        const size_t end = std::min(text_.find('\n', at), text_.size());
        lines.push_back(text_.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

FILE *CommandOutput::as_file() {
    file_.reset(fmemopen(text_.data(), text_.size(), "r"));
    return file_.get();
}

size_t reap_killed_programs() {
    TEMHOSTD_MAIN_THREAD_ONLY();
    s_killed.erase(std::remove_if(s_killed.begin(), s_killed.end(),
                                  [](const Killed &k) {
                                      int status;
                                      const pid_t r = waitpid(k.pid, &status, WNOHANG);
                                      return r == k.pid || (r < 0 && errno == ECHILD);
                                  }),
                   s_killed.end());
    return s_killed.size();
}

void set_reaping_request(void (*request)()) {
    s_reaping_request = request;
}

} // namespace platform
