// SPDX-License-Identifier: Apache-2.0
// The CPU load sampler driven by tick samples in a scratch host tree, a
// stand-in psrinfo and an injected clock.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostCpu_interface.h"
#include "unit_helpers.h"

namespace {

cpu_stat_t ticks(uint_t user, uint_t kernel, uint_t idle, uint_t wait) {
    cpu_stat_t s{};
    s.cpu_sysinfo.cpu[CPU_USER] = user, s.cpu_sysinfo.cpu[CPU_KERNEL] = kernel;
    s.cpu_sysinfo.cpu[CPU_IDLE] = idle, s.cpu_sysinfo.cpu[CPU_WAIT] = wait;
    return s;
}

TEST(CpuLoad, WorkedSharesZeroDeltaAndWrap) {
    const cpu_stat_t zero{};
    EXPECT_EQ(80u, cpu_load_percent(zero, ticks(60, 20, 15, 5))) << "waiting is no work";
    EXPECT_EQ(12u, cpu_load_percent(zero, ticks(13, 0, 87, 0))) << "0.13 is stored just below";
    EXPECT_EQ(0u, cpu_load_percent(ticks(5, 6, 7, 8), ticks(5, 6, 7, 8))) << "no tick passed";
    // User ticks wrapped from near 2^32: the difference is still 30 of 40.
    EXPECT_EQ(75u, cpu_load_percent(ticks(0xFFFFFFF0u, 0, 100, 0), ticks(14, 0, 110, 0)));
}

struct CpuSampler : ::testing::Test {
    static time_t now;
    ScratchDir root{true};

    void SetUp() override {
        now = 1000000;
        set_cpu_clock([] { return now; });
    }
    void TearDown() override {
        cleanup_cpustat_chain();
        g_numCpu = 0;
        set_cpu_clock(nullptr);
    }
    // n processors, all on-line but the one given.
    void host(int n, int offline = -1) {
        root.write("sys/devices/system/cpu/present", "0-" + std::to_string(n - 1) + "\n");
        std::string listing;
        for (int i = 0; i < n; ++i)
            listing += std::to_string(i) + (i == offline ? "\toff-line\n" : "\ton-line\n");
        root.command("psrinfo", listing);
        root.write("proc/stat", "cpu0 0 0 0 0\n");
        ASSERT_EQ(1, initCpuUtilTable());
    }
    // One /proc/stat line per processor given (user, kernel, idle, wait);
    // a processor without ticks is absent from the statistics.
    void sample(const std::vector<std::vector<uint_t>> &cpus) {
        std::string stat;
        for (size_t i = 0; i < cpus.size(); ++i) {
            if (cpus[i].empty())
                continue;
            const auto &c = cpus[i]; // nice is 0
            stat += "cpu" + std::to_string(i) + " " + std::to_string(c[0]) + " 0 " +
                    std::to_string(c[1]) + " " + std::to_string(c[2]) + " " + std::to_string(c[3]) +
                    "\n";
        }
        root.write("proc/stat", stat);
        ASSERT_EQ(1, refresh_cpuLoad_CB());
    }
    static const vorHoCpuUtilEntry_type &cpu(int i) { return find_cpu_inst(i)->vorCpu; }
};
time_t CpuSampler::now;

// Seven samples 10 s apart: the 1-minute ring holds the last six, their
// mean rounded; the 5-minute average is still unknown.
TEST_F(CpuSampler, MinuteRingOfSixSamplesRoundsItsMean) {
    ASSERT_NO_FATAL_FAILURE(host(1));
    sample({{0, 0, 0, 0}});
    uint_t user = 0, idle = 0;
    // 70 % would read 69 (0.7 is stored just below): 80 stands in for it.
    for (uint_t load : {10u, 20u, 30u, 40u, 50u, 60u, 80u}) {
        user += load, idle += 100 - load;
        now += 10;
        sample({{user, 0, idle, 0}});
    }
    EXPECT_EQ(6u, cpu(0).hdr[CPU_RING_1MIN].count);
    EXPECT_EQ(47, cpu(0).cpu_1min); // 280 / 6
    EXPECT_EQ(-1, cpu(0).cpu_5min) << "70 s after start";
}

TEST_F(CpuSampler, LongAveragesStayUnknownForTheirWholeSpan) {
    const struct {
        time_t elapsed;
        bool five, thirty, sixty;
    } cases[] = {{299, false, false, false}, {300, true, false, false}, {1799, true, false, false},
                 {1800, true, true, false},  {3599, true, true, false}, {3600, true, true, true}};
    for (const auto &c : cases) {
        now = 1000000;
        ASSERT_NO_FATAL_FAILURE(host(1));
        sample({{0, 0, 0, 0}});
        now += c.elapsed;
        sample({{40, 0, 60, 0}}); // the first computed sample feeds the long rings
        const vorHoCpuUtilEntry_type &e = cpu(0);
        EXPECT_EQ(c.five ? 40 : -1, e.cpu_5min) << c.elapsed;
        EXPECT_EQ(c.thirty ? 40 : -1, e.cpu_30min) << c.elapsed;
        EXPECT_EQ(c.sixty ? 40 : -1, e.cpu_60min) << c.elapsed;
    }
}

// Far beyond 64 processors, each statistic lands in its own processor's
// row; an off-line processor, absent from the statistics, reads 0.
TEST_F(CpuSampler, EachProcessorItsOwnLoadOffLineOnesZero) {
    const int n = 200;
    ASSERT_NO_FATAL_FAILURE(host(n, 1));
    std::vector<std::vector<uint_t>> zero(n, {0, 0, 0, 0}), busy(n, {25, 0, 75, 0});
    zero[1].clear(), busy[1].clear();
    busy[n - 1] = {50, 0, 50, 0};
    sample(zero);
    sample(busy);
    EXPECT_EQ((std::vector<int>{25, 0, 25, 50}),
              (std::vector<int>{cpu(0).cpu_1min, cpu(1).cpu_1min, cpu(n - 2).cpu_1min,
                                cpu(n - 1).cpu_1min}));
}

// The listing (a program started) is taken again only when the processors
// in the statistics change or the last one is a minute old; a sample that
// cannot be read changes nothing, and the next measures from the last good.
TEST_F(CpuSampler, ListingOnlyWhenDueAndFailedSamplesLoseNothing) {
    ASSERT_NO_FATAL_FAILURE(host(2));
    root.write("psrinfo", "#!/bin/sh\necho >>\"$0.runs\"\nprintf '0 on-line\\n1 on-line\\n'\n");
    const struct {
        time_t step;
        bool both;
        size_t runs;
    } steps[] = {{0, true, 1},   {10, true, 1},  {49, true, 1}, {1, true, 2},
                 {10, false, 3}, {10, false, 3}, {10, true, 4}};
    for (const auto &s : steps) {
        now += s.step;
        sample({{0, 0, 0, 0}, s.both ? std::vector<uint_t>{0, 0, 0, 0} : std::vector<uint_t>{}});
        std::ifstream runs(root.path + "/psrinfo.runs");
        EXPECT_EQ(s.runs, std::string(std::istreambuf_iterator<char>(runs), {}).size()) << now;
    }
    sample({{30, 0, 70, 0}, {}});
    std::filesystem::remove(root.path + "/proc/stat");
    EXPECT_EQ(0, refresh_cpuLoad_CB());
    sample({{130, 0, 70, 0}, {}});
    EXPECT_EQ(22, cpu(0).cpu_1min) << "(30 + 100 + four zeros) / 6";
}

} // namespace
