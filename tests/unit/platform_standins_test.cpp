// SPDX-License-Identifier: Apache-2.0
// The Solaris command stand-ins: formats against fixture trees.
#include "platform/popen_stream.h"
#include "platform/standins.h"
#include "unit_helpers.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <sys/wait.h>
#include <fnmatch.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <sstream>

namespace {

struct PlatformStandins : ::testing::Test {
    void TearDown() override { platform::set_host_root(""); }
    // Runs one stand-in's main logic; returns its exit status.
    int run(int (*fn)(int, char **, std::ostream &, std::ostream &),
            std::vector<std::string> args) {
        std::vector<char *> argv;
        for (std::string &a : args)
            argv.push_back(a.data());
        out_.str(""), err_.str("");
        return fn(static_cast<int>(argv.size()), argv.data(), out_, err_);
    }
    std::ostringstream out_, err_;
};

// Shell-pattern match ([0-9] classes, *), spanning lines.
bool like(const std::string &text, const std::string &pattern) {
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}
const std::string kD2 = "[0-9][0-9]", kClock = kD2 + ":" + kD2 + ":" + kD2;

TEST(PlatformTelnet, ListenerMustBeAListeningSocketOnLocalPort23) {
    const std::pair<const char *, bool> rows[] = {
        {"0: 00000000:0017 00000000:0000 0A 00000000:00000000", true},
        {"0: 00000000000000000000000000000000:0017 00000000000000000000000000000000:0000 0A 0",
         true},
        {"0: 0100007F:0017 0100007F:9C41 01 0", false},  // established
        {"0: 0100007F:9C40 0100007F:0017 0A 0", false},  // remote port
        {"0: 00000000:00017 00000000:0000 0A 0", false}, // odd width
        {"0: zz:0017 00000000:0000 0A\n\n\x01garbage", false},
    };
    for (const auto &[row, listens] : rows) {
        std::istringstream in(std::string("  sl  local_address rem_address   st\n") + row + "\n");
        EXPECT_EQ(listens, platform::has_telnet_listener(in)) << row;
    }
}

TEST_F(PlatformStandins, TelnetStateFromListenersAndInetd) {
    // A listener in tcp6 only; near misses only; inetd running or not.
    const std::pair<const char *, bool> trees[] = {
        {"host", true}, {"bare", false}, {"inetd", true}, {"inetd-stopped", false}};
    for (const auto &[tree, online] : trees) {
        use_fixture(std::string("platform/") + tree);
        EXPECT_EQ(online, platform::telnet_online()) << tree;
    }
    EXPECT_EQ(run(platform::run_svcs, {"svcs", "-a"}), 0);
    EXPECT_TRUE(like(out_.str(), "*\ndisabled       ?* svc:/network/telnet:default\n"))
        << out_.str();
}

TEST(PlatformTelnet, KernelReportsListenersOfEitherFamilyButNotConnections) {
    for (int family : {AF_INET, AF_INET6}) {
        sockaddr_storage ss{}, mine{};
        ss.ss_family = family;
        if (family == AF_INET)
            reinterpret_cast<sockaddr_in *>(&ss)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        else
            reinterpret_cast<sockaddr_in6 *>(&ss)->sin6_addr = in6addr_loopback;
        socklen_t len = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        const int fd = socket(family, SOCK_STREAM, 0), client = socket(family, SOCK_STREAM, 0);
        if (bind(fd, reinterpret_cast<sockaddr *>(&ss), len) != 0) {
            close(fd), close(client);
            continue; // no such family on this host
        }
        ASSERT_EQ(0, listen(fd, 1));
        getsockname(fd, reinterpret_cast<sockaddr *>(&ss), &len);
        ASSERT_EQ(0, connect(client, reinterpret_cast<sockaddr *>(&ss), len));
        getsockname(client, reinterpret_cast<sockaddr *>(&mine), &len);
        // the port sits at the same offset in both families
        const uint16_t port = ntohs(reinterpret_cast<sockaddr_in *>(&ss)->sin_port);
        EXPECT_EQ(platform::ListenerAnswer::Yes, platform::tcp_listener_on_port(port)) << family;
        EXPECT_EQ(platform::ListenerAnswer::No,
                  platform::tcp_listener_on_port(
                      ntohs(reinterpret_cast<sockaddr_in *>(&mine)->sin_port)));
        close(client);
        close(fd);
        EXPECT_EQ(platform::ListenerAnswer::No, platform::tcp_listener_on_port(port)) << family;
    }
}

TEST(PlatformSvcs, TimeColumnNarrowsWithAge) {
    const time_t now = 1700000000;
    EXPECT_TRUE(like(platform::svcs_stime(now - 60, now), kClock));
    EXPECT_TRUE(like(platform::svcs_stime(now - 3 * 86400, now), "[A-Z][a-z][a-z]_" + kD2));
    EXPECT_TRUE(like(platform::svcs_stime(now - 800 * 86400, now), kD2 + kD2));
}

TEST_F(PlatformStandins, PsrinfoReportsEachProcessorFromSysfs) {
    use_fixture("platform/host");
    const std::string since = " since " + kD2 + "/" + kD2 + "/" + kD2 + kD2 + " " + kClock + "\n";
    EXPECT_EQ(run(platform::run_psrinfo, {"psrinfo"}), 0);
    EXPECT_TRUE(like(out_.str(), "0\ton-line  " + since + "1\ton-line  " + since + "2\toff-line " +
                                     since + "3\ton-line  " + since))
        << out_.str();
    EXPECT_EQ(run(platform::run_psrinfo, {"psrinfo", "2"}), 0);
    EXPECT_EQ(out_.str().substr(0, 16), "2\toff-line  sinc");
    EXPECT_NE(run(platform::run_psrinfo, {"psrinfo", "4"}), 0) << "no processor 4";
    for (const char *bad : {"-v", "x1", "-1", "99999999999"}) {
        EXPECT_NE(run(platform::run_psrinfo, {"psrinfo", bad}), 0) << bad;
        EXPECT_NE(err_.str().find("usage"), std::string::npos) << bad;
    }
}

TEST_F(PlatformStandins, PkginfoListsInstalledPackagesInTheExtractedFormat) {
    use_fixture("platform/host");
    ASSERT_EQ(run(platform::run_pkginfo, {"pkginfo", "-x"}), 0);
    std::istringstream in(out_.str());
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    ASSERT_EQ(lines.size(), 8u) << out_.str();
    // Overlong lines are cut to what the provider reads in one go (255 and
    // 79 characters with the line end).
    EXPECT_EQ(lines[6].size(), 254u);
    EXPECT_EQ(lines[7].size(), 78u);
    EXPECT_EQ(lines[7].substr(0, 24), "              (amd64) 1.");
    lines.resize(6);
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "adduser       add and remove users and groups", "              (all) 3.134",
                  "libvorsample-dev lower-case field names and a comma in the version",
                  "              (amd64) 1:2.3.4,rev5-1",
                  "crlf-tool     written with CR LF line ends", "              (arm64) 0.1"}));
    EXPECT_NE(run(platform::run_pkginfo, {"pkginfo"}), 0);
    use_fixture("platform/bare"); // no dpkg database
    EXPECT_NE(run(platform::run_pkginfo, {"pkginfo", "-x"}), 0);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(PlatformStandins, ModinfoListsWellFormedModuleLines) {
    const std::string head = " Id Loadaddr   Size Info Rev Module Name\n";
    use_fixture("platform/host");
    ASSERT_EQ(run(platform::run_modinfo, {"modinfo", "-w"}), 0);
    EXPECT_EQ(out_.str(), head + "  1 ffffffffc0a00000  f5000    -   1  ext4 (ext4)\n"
                                 "  2        0  4b000    -   1  nf_tables (nf_tables)\n"
                                 "  3 ffffffffc09c0000  30000    -   1  jbd2 (jbd2)\n");
    use_fixture("platform/bare"); // binary garbage
    ASSERT_EQ(run(platform::run_modinfo, {"modinfo"}), 0);
    EXPECT_EQ(out_.str(), head);
    use_fixture("platform/inetd"); // a kernel without module support
    EXPECT_EQ(run(platform::run_modinfo, {"modinfo", "-w"}), 0);
    EXPECT_NE(run(platform::run_modinfo, {"modinfo", "-c"}), 0);
}

// Lines without shell syntax run directly (the daemon is the parent), the
// rest through the shell; either way the program starts with nothing
// blocked and SIGPIPE at its default, whatever the daemon holds.
TEST(PlatformPopen, PlainLinesRunWithoutAShellAndChildrenStartUnblocked) {
    const std::pair<const char *, std::vector<std::string>> plain[] = {
        {"'/a b/pkginfo' -x", {"/a b/pkginfo", "-x"}},
        {"'/it'\\''s/psrinfo'", {"/it's/psrinfo"}},
        {"svcs |grep telnet", {}},
        {"echo $HOME", {}},
        {"'unterminated", {}},
    };
    for (const auto &c : plain) {
        std::vector<std::string> words;
        EXPECT_EQ(!c.second.empty(), platform::split_plain_command(c.first, words)) << c.first;
        EXPECT_EQ(c.second, c.second.empty() ? c.second : words) << c.first;
    }
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
