// SPDX-License-Identifier: Apache-2.0
#include "platform/popen_stream.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace platform {

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

PopenStream::PopenStream(const char *command) {
    std::vector<std::string> words;
    // A program that cannot be started directly goes to the shell after
    // all: it reports the failure as popen would (status 127, empty output).
    if (split_plain_command(command, words) && spawn(words)) {
        return;
    }
    spawn({"/bin/sh", "-c", command});
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
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&defaults, sig);
    }
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int rc = strchr(argv[0], '/')
                       ? posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ)
                       : posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    ::close(fds[1]);
    if (rc != 0) {
        ::close(fds[0]);
        return false;
    }
    pid_ = pid;
    fp_ = fdopen(fds[0], "r");
    if (!fp_) {
        ::close(fds[0]);
        close();
        return true; // started and waited for: nothing to read
    }
    return true;
}

int PopenStream::close() {
    if (pid_ < 0) {
        return -1;
    }
    if (fp_) {
        fclose(fp_);
        fp_ = nullptr;
    }
    int status = -1;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
}

} // namespace platform
