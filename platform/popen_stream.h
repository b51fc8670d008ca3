// SPDX-License-Identifier: Apache-2.0
// A command's output stream that is always closed and waited for, on every
// path.
#pragma once

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

namespace platform {

// The words of a command line that needs no shell: plain words, single
// quoted parts and backslash escapes, separated by blanks. False when the
// line holds anything else a shell would act on (pipes, redirections,
// variables, patterns, double quotes, ...).
bool split_plain_command(const char *command, std::vector<std::string> &words);

// Runs the command like popen(command, "r") does, except that a line with
// no shell syntax is executed directly: a shell started every few seconds
// only to run one program is most of an idle daemon's cost. Either way the
// program starts with no signal blocked and SIGPIPE, SIGTERM, SIGINT and
// SIGHUP at their default actions, whatever the daemon holds at the time.
class PopenStream {
  public:
    explicit PopenStream(const char *command);
    ~PopenStream() { close(); }
    PopenStream(const PopenStream &) = delete;
    PopenStream &operator=(const PopenStream &) = delete;

    bool ok() const { return fp_ != nullptr; }
    FILE *get() const { return fp_; }
    // Reads one line (fgets semantics); false at end of output or without a stream.
    bool read_line(char *buf, int size) { return fp_ && fgets(buf, size, fp_) != nullptr; }
    // Closes now and returns the wait status, as pclose does (-1 when
    // nothing was open).
    int close();

  private:
    bool spawn(const std::vector<std::string> &words);
    FILE *fp_ = nullptr;
    pid_t pid_ = -1;
};

} // namespace platform
