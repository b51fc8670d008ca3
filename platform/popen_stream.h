// SPDX-License-Identifier: Apache-2.0
// The programs the daemon runs: started by an absolute path, with a fixed
// environment and only descriptors 0 to 2, read to the end of their output
// within a deadline, killed with everything they started when they miss
// it, and always reaped.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace platform {

// How long a program may take to print its output. The listings and the
// process and module lists take a few ms (ps over thousands of processes
// some tens); one that takes longer has hung (a ps stuck on a process that
// waits for a dead file server), and the rebuild waiting for it holds the
// loop that long. 500 ms keeps a request waiting behind it, even with a new
// hung mount met by the same rebuild (250 ms more), inside the master's
// 1 s AgentX time-out.
constexpr int kCommandDeadlineMs = 500;

// What every program gets as its environment, nothing inherited: the
// daemon runs as root, and a PATH of the caller's would choose the programs.
extern const char *const kCommandEnvironment[];

// The words of a command line that needs no shell: plain words, single
// quoted parts and backslash escapes, separated by blanks. False when the
// line holds anything else a shell would act on (pipes, redirections,
// variables, patterns, double quotes, ...).
bool split_plain_command(const char *command, std::vector<std::string> &words);

// A program's whole output as PopenStream::read_all took it, read as lines
// or, by a parser that reads with fgets, through a FILE *.
class CommandOutput {
  public:
    CommandOutput() = default;
    explicit CommandOutput(std::string text) : text_(std::move(text)) {}
    // The stream reads the text in place: neither is copied nor moved.
    CommandOutput(const CommandOutput &) = delete;
    CommandOutput &operator=(const CommandOutput &) = delete;

    const std::string &text() const { return text_; }
    // One string per line, without its '\n'. A last line without one is a
    // line too; an empty output has none. A NUL byte stays in its line.
    std::vector<std::string> lines() const;
    // The text as a read-only stream from its start, open until the next
    // call or this object's end (the stream given before is closed); null
    // when none can be opened.
    FILE *as_file();

  private:
    friend class PopenStream;
    struct Closer {
        void operator()(FILE *fp) const { fclose(fp); }
    };
    std::string text_;
    std::unique_ptr<FILE, Closer> file_;
};

// Runs the command like popen(command, "r") does, except that a line with
// no shell syntax whose program is an absolute path is executed directly:
// a shell started every few seconds only to run one program is most of an
// idle daemon's cost. Either way the program starts in a process group of
// its own, with no signal blocked and SIGPIPE, SIGTERM, SIGINT and SIGHUP
// at their default actions, whatever the daemon holds at the time.
class PopenStream {
  public:
    explicit PopenStream(const char *command, int deadline_ms = kCommandDeadlineMs);
    ~PopenStream() { close(); }
    PopenStream(const PopenStream &) = delete;
    PopenStream &operator=(const PopenStream &) = delete;

    // Started, output not read yet. A command whose killed run has not
    // ended yet is not started again: nothing piles up behind a hang.
    bool ok() const { return fd_ >= 0; }
    // The whole output into out, until the program closes it; a signal does
    // not cut the read short. False when nothing was started, or when the
    // output did not end by the deadline: the process group is killed then,
    // and the command is logged as stuck (once, and once more when a run
    // ends in time again).
    bool read_all(CommandOutput &output);
    // Waits for the end, within what is left of the deadline, and returns
    // the wait status as pclose does; -1 when nothing ran or it had to be
    // killed (it is reaped later, without waiting).
    int close();

  private:
    bool spawn(const std::vector<std::string> &words);
    void kill_group();
    std::string command_;
    int deadline_ms_;
    int64_t deadline_ = 0;
    int fd_ = -1;
    int pidfd_ = -1;
    pid_t pid_ = -1;
};

// Reaps the killed programs that have ended since; returns how many are
// still waited for. The daemon calls it from an alarm that it arms when
// asked to through the request below (main thread).
size_t reap_killed_programs();
void set_reaping_request(void (*request)());

} // namespace platform
