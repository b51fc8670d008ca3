// SPDX-License-Identifier: Apache-2.0
// The Solaris command stand-ins, and how programs are started.
#include "platform/popen_stream.h"
#include "platform/standins.h"
#include "unit_helpers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fnmatch.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A listening socket on local port 23 in a /proc/net/tcp table; with no
// listener, an enabled inetd.conf line counts while inetd runs.
TEST(PlatformStandins, TelnetFromListenersAndInetd) {
    const std::pair<const char *, bool> rows[] = {
        {"0: 00000000:0017 00000000:0000 0A", true},
        {"0: 00000000000000000000000000000000:0017 00000000000000000000000000000000:0000 0A", true},
        {"0: 0100007F:0017 0100007F:9C41 01", false}, // established
        {"0: 0100007F:9C40 0100007F:0017 0A", false}, // remote port
    };
    for (const auto &[row, listens] : rows) {
        std::istringstream in(std::string("  sl  local_address rem_address   st\n") + row + "\n");
        EXPECT_EQ(listens, platform::has_telnet_listener(in)) << row;
    }
    ScratchDir root(true);
    root.write("etc/inetd.conf", "127.0.0.1:telnet stream tcp nowait root /usr/sbin/in.telnetd\n");
    for (const char *comm : {"inetd", "bash"}) {
        root.write("proc/77/comm", std::string(comm) + "\n");
        EXPECT_EQ(comm[0] == 'i', platform::telnet_online()) << comm;
    }
}

// svcs' time column: the time of day within a day, then month and day,
// then the year; psrinfo's state column.
TEST(PlatformStandins, SvcsTimesAndPsrinfoStates) {
    const time_t now = 1700000000;
    const std::string d2 = "[0-9][0-9]";
    const std::pair<time_t, std::string> ages[] = {{86399, d2 + ":" + d2 + ":" + d2},
                                                   {86400, "[A-Z][a-z][a-z]_" + d2},
                                                   {800 * 86400, d2 + d2}};
    for (const auto &[age, pattern] : ages)
        EXPECT_EQ(0, fnmatch(pattern.c_str(), platform::svcs_stime(now - age, now).c_str(), 0))
            << age;
    EXPECT_EQ("0\ton-line   since",
              platform::psrinfo_line(0, platform::ProcessorState::Online, now).substr(0, 17));
    EXPECT_EQ("1\toff-line  since",
              platform::psrinfo_line(1, platform::ProcessorState::Offline, now).substr(0, 17));
}

// modinfo's listing of /proc/modules: well-formed lines only, under its header.
TEST(PlatformStandins, ModinfoListsWellFormedModuleLines) {
    std::istringstream in("ext4 1003520 2 - Live 0xffffffffc0a00000\nnf_tables 307200 0 - Live "
                          "0x0000000000000000 (E)\nbad_size 12x 0 - Live 0xffffffffc0000000\n"
                          "bad_addr 4096 0 - Live ffffffffc0000000\nhalf a line\n\x01\xff\n");
    EXPECT_EQ(" Id Loadaddr   Size Info Rev Module Name\n"
              "  1 ffffffffc0a00000  f5000    -   1  ext4 (ext4)\n"
              "  2        0  4b000    -   1  nf_tables (nf_tables)\n",
              platform::modinfo_listing(in));
}

// Lines without shell syntax run directly (the daemon is the parent), the
// rest through the shell; either way the program starts with nothing
// blocked and SIGPIPE at its default, whatever the daemon holds.
TEST(PlatformPopen, PlainLinesRunWithoutAShellAndChildrenStartUnblocked) {
    sigset_t term, saved;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, &saved);
    void (*saved_pipe)(int) = signal(SIGPIPE, SIG_IGN);
    const std::string me = "PPid:\t" + std::to_string(getpid()) + "\n";
    const auto mask = [](const std::string &out, const char *field) {
        const size_t at = out.find(field);
        return at == std::string::npos ? ~0ull : std::stoull(out.substr(at + 8), nullptr, 16);
    };
    const struct {
        const char *command;
        bool direct;
        int status;
    } runs[] = {{"cat /proc/self/status", true, 0},
                {"cat /proc/self/status | cat", false, 0},
                {"/no/such/program", false, 127}};
    for (const auto &r : runs) {
        platform::PopenStream p(r.command);
        ASSERT_TRUE(p.ok()) << r.command;
        std::string out;
        char line[256];
        while (p.read_line(line, sizeof(line)))
            out += line;
        EXPECT_EQ(r.status, WEXITSTATUS(p.close())) << r.command;
        if (r.status == 0) {
            EXPECT_EQ(r.direct, out.find(me) != std::string::npos) << r.command;
            EXPECT_EQ(0u, mask(out, "SigBlk:") & (1u << (SIGTERM - 1))) << r.command;
            EXPECT_EQ(0u, mask(out, "SigIgn:") & (1u << (SIGPIPE - 1))) << r.command;
        }
    }
    signal(SIGPIPE, saved_pipe);
    sigprocmask(SIG_SETMASK, &saved, nullptr);
}

} // namespace
