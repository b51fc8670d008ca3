// SPDX-License-Identifier: Apache-2.0
// The check plugin's judgement: Nagios ranges and each mode's verdict on
// table rows, without a network.
#include <gtest/gtest.h>

#include <functional>

#include "contrib/nagios/check_verdict.h"

using namespace check;

namespace {

Range range(const std::string &text) {
    std::string error;
    auto r = Range::parse(text, &error);
    EXPECT_TRUE(r) << text << ": " << error;
    return r.value_or(Range{});
}

Thresholds th(const std::string &w, const std::string &c) {
    return {range(w), range(c)};
}

} // namespace

TEST(CheckRange, AlertsOutsideOrInside) {
    struct Case {
        const char *text;
        double value;
        bool alert;
    } cases[] = {
        {"10", 0, false},     {"10", 10, false},      {"10", 10.01, true},   {"10", -0.5, true},
        {"10:", 9.99, true},  {"10:", 10, false},     {"10:", 1e12, false},  {"~:10", -1e12, false},
        {"~:10", 10, false},  {"~:10", 10.5, true},   {"10:20", 9, true},    {"10:20", 10, false},
        {"10:20", 20, false}, {"10:20", 20.5, true},  {"@10:20", 10, true},  {"@10:20", 15, true},
        {"@10:20", 20, true}, {"@10:20", 9.9, false}, {"@10:20", 21, false}, {"-5:-1", -3, false},
        {"-5:-1", 0, true},   {":5", -1, true},       {"~:", 1e300, false},  {"2.5:3.5", 3, false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(range(c.text).alert(c.value), c.alert) << c.text << " at " << c.value;
}

TEST(CheckRange, RefusesWhatIsNoRange) {
    for (const char *bad : {"", "@", "abc", "10:5", "1x", "nan", "inf", "~", "5:x"}) {
        std::string error;
        EXPECT_FALSE(Range::parse(bad, &error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
}

TEST(CheckVerdict, EveryModeOnTableRows) {
    const auto t = th("80", "90");
    const std::vector<FsRow> fs = {{"/dev/sda1 On /", 1000, 450, 46},
                                   {"tmpfs On /var/spool", 16, 13, 82},
                                   {"srv:/x On /mnt/it's On here", 100, 95, 96},
                                   {"tmpfs On /tiny", 0, 0, 51}};
    // (clang-format 14 and 19 lay out lambdas in a braced list differently.)
    // clang-format off
    struct Case {
        const char *name;
        std::function<Result()> judge;
        State state;
        std::vector<std::string> wanted; // substrings of the status line
    } cases[] = {
        {"fs: the fullest decides, the worst listed first",
         [&] { return judge_fs(fs, {}, t); },
         CRITICAL,
         {"TEMHOSTD FS CRITICAL - /mnt/it's On here 95.0% used (critical), /var/spool 81.2% used "
          "(warning) of 4 file systems |",
          "'/'=45.0%;80;90;0;100", "'/mnt/it''s On here'=95.0%", "'/tiny'=50.0%"}},
        {"fs: a glob leaves the full ones out",
         [&] { return judge_fs(fs, {"/", "/t*"}, t); },
         OK,
         {"2 file systems, fullest /tiny 50.0% used"}},
        {"fs: no mount point matches",
         [&] { return judge_fs(fs, {"/nowhere"}, t); },
         UNKNOWN,
         {"no file system mounted on /nowhere"}},
        {"fs: an empty table", [&] { return judge_fs({}, {}, t); }, UNKNOWN, {}},
        {"cpu: the busiest processor",
         [&] { return judge_cpu({{0, 12}, {1, 85}, {2, -1}}, t); },
         WARNING,
         {"busiest processor cpu1 85% busy over 5 minutes, of 3 processors",
          "'cpu0'=12.0%;80;90;0;100"}},
        {"cpu: averages not known yet",
         [&] { return judge_cpu({{0, -1}}, t); },
         UNKNOWN,
         {"no 5-minute average yet"}},
        {"cpu: over the critical", [&] { return judge_cpu({{0, 91}}, t); }, CRITICAL, {}},
        {"software: a stopped package named",
         [&] { return judge_software({{"temhostd", 2}, {"orderd", 3}, {"libfoo", 1}}, {}); },
         CRITICAL,
         {"not running: orderd (1 of 2 watched running)", "'running'=1;;;0 'not_running'=1;;;0"}},
        {"software: every watched one running",
         [&] { return judge_software({{"temhostd", 2}, {"libfoo", 1}}, {}); },
         OK,
         {"1 watched package running"}},
        {"software: the glob leaves the stopped one out",
         [&] { return judge_software({{"temhostd", 2}, {"orderd", 3}}, {"temh*"}); },
         OK,
         {}},
        {"software: no package by that name",
         [&] { return judge_software({{"temhostd", 2}}, {"pg*"}); },
         UNKNOWN,
         {"no package named pg*"}},
        {"software: an empty table",
         [&] { return judge_software({}, {}); },
         UNKNOWN,
         {"no package in the table"}},
        {"memory: physical over critical",
         [&] { return judge_memory(1000, 40, 0, 0, th("90", "95")); },
         CRITICAL,
         {"physical memory 96.0% used of 1000 MB |", "'physical'=96.0%;90;95;0;100"}},
        {"memory: paging decides",
         [&] { return judge_memory(1000, 500, 200, 5, th("90", "95")); },
         CRITICAL,
         {"paging 97.5% used of 200 MB"}},
        {"memory: no size", [&] { return judge_memory(0, 0, 0, 0, t); }, UNKNOWN, {}},
    };
    // clang-format on
    for (const auto &c : cases) {
        Result r = c.judge();
        EXPECT_EQ(r.state, c.state) << c.name << ": " << r.line("fs");
        std::string mode = std::string(c.name).substr(0, std::string(c.name).find(':'));
        for (const auto &w : c.wanted)
            EXPECT_NE(r.line(mode).find(w), std::string::npos) << c.name << ": " << r.line(mode);
    }
}

TEST(CheckVerdict, StatusFromTheOverallCondition) {
    auto array = [](int overall, int mib = 0, int condition = 0) {
        std::string a(256, '\0');
        a[0] = 1, a[1] = static_cast<char>(overall), a[2] = 8;
        if (mib) {
            a[4 * mib] = 1;
            a[4 * mib + 1] = static_cast<char>(condition);
        }
        return a;
    };
    struct Case {
        std::string array;
        State state;
        const char *wanted;
    } cases[] = {
        {array(2, 11, 2), OK, "overall condition ok | 'condition'=2;;;1;4"},
        {array(3, 6, 3), WARNING, "overall condition degraded: MIB 6 degraded"},
        {array(4, 18, 4), CRITICAL, "overall condition failed: MIB 18 failed"},
        {array(1), UNKNOWN, "other (no agent's condition could be read)"},
        {array(9), UNKNOWN, "condition 9"},
        {std::string(1, '\1'), UNKNOWN, "holds 1 octets"},
    };
    for (const auto &c : cases) {
        Result r = judge_status(c.array);
        EXPECT_EQ(r.state, c.state) << r.line("status");
        EXPECT_NE(r.line("status").find(c.wanted), std::string::npos) << r.line("status");
    }
}

TEST(CheckVerdict, StatusLineKeepsItsShape) {
    Result r{WARNING, "a|b\nc", "'x'=1"};
    EXPECT_EQ(r.line("fs"), "TEMHOSTD FS WARNING - a/b?c | 'x'=1");
    EXPECT_EQ(Result{}.line("memory"), "TEMHOSTD MEMORY UNKNOWN - ");
    EXPECT_EQ(Result{}.line(""), "TEMHOSTD UNKNOWN - ");
    EXPECT_EQ(mount_point("/dev/sda1 On /srv/a On b"), "/srv/a On b");
}
