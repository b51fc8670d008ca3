// The Solaris command stand-ins: formats against fixture trees, and the
// built programs on the live host.
#include "platform/host_paths.h"
#include "platform/standins.h"

#include <gtest/gtest.h>

#include <fnmatch.h>
#include <sstream>
#include <sys/wait.h>

namespace {

const std::string kFixtures = std::string(TEMHOSTD_FIXTURES) + "/platform/";

class PlatformStandins : public ::testing::Test {
  protected:
    void TearDown() override { platform::set_host_root(""); }
    void use(const char *tree) { platform::set_host_root(kFixtures + tree); }

    // Runs one stand-in's main logic; returns its exit status.
    int run(int (*fn)(int, char **, std::ostream &, std::ostream &),
            std::vector<std::string> args) {
        std::vector<char *> argv;
        for (std::string &a : args)
            argv.push_back(a.data());
        out_.str("");
        err_.str("");
        return fn(static_cast<int>(argv.size()), argv.data(), out_, err_);
    }
    std::ostringstream out_, err_;
};

// Shell-pattern match ([0-9] classes, *), spanning lines.
bool like(const std::string &text, const std::string &pattern) {
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

const std::string kD2 = "[0-9][0-9]";
const std::string kClock = kD2 + ":" + kD2 + ":" + kD2;

// Output and exit status of a built stand-in.
std::pair<std::string, int> run_program(const std::string &cmdline) {
    std::string out;
    FILE *p =
        popen((std::string(TEMHOSTD_LIBEXEC_DIR) + "/" + cmdline + " 2>/dev/null").c_str(), "r");
    char buf[512];
    while (p && fgets(buf, sizeof(buf), p))
        out += buf;
    int status = p ? pclose(p) : -1;
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

TEST_F(PlatformStandins, TelnetListenerMustBeAListeningSocketOnLocalPort23) {
    const std::string head = "  sl  local_address rem_address   st\n";
    auto listens = [&](const std::string &row) {
        std::istringstream in(head + row + "\n");
        return platform::has_telnet_listener(in);
    };
    EXPECT_TRUE(listens("   0: 00000000:0017 00000000:0000 0A 00000000:00000000"));
    EXPECT_TRUE(listens("   0: 00000000000000000000000000000000:0017 "
                        "00000000000000000000000000000000:0000 0A 0"));
    EXPECT_FALSE(listens("   0: 0100007F:0017 0100007F:9C41 01 0"));     // established
    EXPECT_FALSE(listens("   0: 0100007F:9C40 0100007F:0017 0A 0"));     // remote port
    EXPECT_FALSE(listens("   0: 00000000:0170 00000000:0000 0A 0"));     // port 368
    EXPECT_FALSE(listens("   0: 00000000:00017 00000000:0000 0A 0"));    // odd width
    EXPECT_FALSE(listens("0: zz:0017 00000000:0000 0A\n\n\x01garbage")); // garbage
}

TEST_F(PlatformStandins, TelnetStateFromListenersInetdAndSystemd) {
    use("host"); // listener in tcp6 only
    EXPECT_TRUE(platform::telnet_online());
    use("bare"); // malformed and near-miss rows only
    EXPECT_FALSE(platform::telnet_online());
    use("inetd"); // bound to one address, inetd running
    EXPECT_TRUE(platform::telnet_online());
    use("inetd-stopped");
    EXPECT_FALSE(platform::telnet_online());
    use("systemd");
    EXPECT_TRUE(platform::telnet_online());

    use("host");
    EXPECT_EQ(run(platform::run_svcs, {"svcs", "-a"}), 0);
    EXPECT_TRUE(like(out_.str(), "*\nonline         ?* svc:/network/telnet:default\n"))
        << out_.str();
    use("bare");
    run(platform::run_svcs, {"svcs"});
    EXPECT_NE(out_.str().find("\ndisabled       "), std::string::npos) << out_.str();
}

TEST_F(PlatformStandins, SvcsTimeColumnNarrowsWithAge) {
    const time_t now = 1700000000;
    EXPECT_TRUE(like(platform::svcs_stime(now - 60, now), kClock));
    EXPECT_TRUE(like(platform::svcs_stime(now - 3 * 86400, now), "[A-Z][a-z][a-z]_" + kD2));
    EXPECT_TRUE(like(platform::svcs_stime(now - 800 * 86400, now), kD2 + kD2));
}

TEST_F(PlatformStandins, PsrinfoReportsEachProcessorFromSysfs) {
    use("host");
    const std::string since = " since " + kD2 + "/" + kD2 + "/" + kD2 + kD2 + " " + kClock + "\n";
    EXPECT_EQ(run(platform::run_psrinfo, {"psrinfo"}), 0);
    EXPECT_TRUE(like(out_.str(), "0\ton-line  " + since + "1\ton-line  " + since + "2\toff-line " +
                                     since + "3\ton-line  " + since))
        << out_.str();
    EXPECT_EQ(run(platform::run_psrinfo, {"psrinfo", "2"}), 0);
    EXPECT_EQ(out_.str().substr(0, 16), "2\toff-line  sinc");
    EXPECT_NE(run(platform::run_psrinfo, {"psrinfo", "4"}), 0);
    EXPECT_EQ(out_.str(), "");
    EXPECT_NE(err_.str(), "");
    for (const char *bad : {"-v", "x1", "-1", "99999999999"}) {
        EXPECT_NE(run(platform::run_psrinfo, {"psrinfo", bad}), 0) << bad;
        EXPECT_NE(err_.str().find("usage"), std::string::npos) << bad;
    }
}

TEST_F(PlatformStandins, PkginfoListsInstalledPackagesInTheExtractedFormat) {
    use("host");
    ASSERT_EQ(run(platform::run_pkginfo, {"pkginfo", "-x"}), 0);
    std::istringstream in(out_.str());
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    ASSERT_EQ(lines.size(), 8u) << out_.str();
    EXPECT_EQ(lines[0], "adduser       add and remove users and groups");
    EXPECT_EQ(lines[1], "              (all) 3.134");
    EXPECT_EQ(lines[2], "libvorsample-dev lower-case field names and a comma in the version");
    EXPECT_EQ(lines[3], "              (amd64) 1:2.3.4,rev5-1");
    EXPECT_EQ(lines[4], "crlf-tool     written with CR LF line ends");
    EXPECT_EQ(lines[5], "              (arm64) 0.1");
    // Over-long lines are cut to what the provider reads in one go
    // (255 and 79 characters with the line end).
    EXPECT_EQ(lines[6].size(), 254u);
    EXPECT_EQ(lines[7].size(), 78u);
    EXPECT_EQ(lines[7].substr(0, 24), "              (amd64) 1.");

    EXPECT_NE(run(platform::run_pkginfo, {"pkginfo"}), 0);
    EXPECT_NE(run(platform::run_pkginfo, {"pkginfo", "-l"}), 0);
    use("bare"); // no dpkg database
    EXPECT_NE(run(platform::run_pkginfo, {"pkginfo", "-x"}), 0);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(PlatformStandins, ModinfoListsWellFormedModuleLines) {
    use("host");
    ASSERT_EQ(run(platform::run_modinfo, {"modinfo", "-w"}), 0);
    EXPECT_EQ(out_.str(), " Id Loadaddr   Size Info Rev Module Name\n"
                          "  1 ffffffffc0a00000  f5000    -   1  ext4 (ext4)\n"
                          "  2        0  4b000    -   1  nf_tables (nf_tables)\n"
                          "  3 ffffffffc09c0000  30000    -   1  jbd2 (jbd2)\n");
    use("bare"); // binary garbage
    ASSERT_EQ(run(platform::run_modinfo, {"modinfo"}), 0);
    EXPECT_EQ(out_.str(), " Id Loadaddr   Size Info Rev Module Name\n");
    use("inetd"); // a kernel without module support
    EXPECT_EQ(run(platform::run_modinfo, {"modinfo", "-w"}), 0);
    EXPECT_NE(run(platform::run_modinfo, {"modinfo", "-c"}), 0);
}

TEST_F(PlatformStandins, BuiltProgramsOnTheLiveHost) {
    auto [all, rc] = run_program("psrinfo");
    ASSERT_EQ(rc, 0);
    std::vector<int> ids = platform::processor_ids();
    ASSERT_FALSE(ids.empty());
    size_t online = 0;
    for (size_t pos = 0; (pos = all.find("\ton-line   since ", pos)) != std::string::npos; ++pos)
        ++online;
    EXPECT_GE(online, 1u);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), static_cast<long>(ids.size()));
    EXPECT_EQ(run_program("psrinfo 9999"), std::make_pair(std::string(), 1));
    EXPECT_NE(run_program("psrinfo --bogus").second, 0);

    auto [svcs, svcs_rc] = run_program("svcs | grep svc:/network/telnet");
    EXPECT_EQ(svcs_rc, 0);
    EXPECT_TRUE(like(svcs, "online         ?* svc:/network/telnet:default\n") ||
                like(svcs, "disabled       ?* svc:/network/telnet:default\n"))
        << svcs;
    EXPECT_EQ(run_program("modinfo -w").second, 0);
    EXPECT_NE(run_program("pkginfo -q").second, 0);
}

} // namespace
