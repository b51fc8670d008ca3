// SPDX-License-Identifier: Apache-2.0
// The CPU load sampler driven by tick samples in a scratch host tree, a
// stand-in psrinfo and an injected clock.
#include <cstring>
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

TEST(CpuLoad, WorkedSharesZeroDeltaWrapAndRange) {
    const cpu_stat_t zero{};
    EXPECT_EQ(80u, cpu_load_percent(zero, ticks(60, 20, 15, 5)));
    EXPECT_EQ(12u, cpu_load_percent(zero, ticks(13, 0, 87, 0))) << "0.13 is stored just below";
    EXPECT_EQ(69u, cpu_load_percent(zero, ticks(70, 0, 30, 0))) << "and so is 0.7";
    EXPECT_EQ(60u, cpu_load_percent(zero, ticks(5996, 0, 4004, 0))) << "three decimals first";
    EXPECT_EQ(100u, cpu_load_percent(zero, ticks(3, 4, 0, 0)));
    EXPECT_EQ(0u, cpu_load_percent(ticks(5, 6, 7, 8), ticks(5, 6, 7, 8))) << "no tick passed";
    EXPECT_EQ(0u, cpu_load_percent(zero, ticks(0, 0, 9, 1)));
    // User ticks wrapped from near 2^32: the difference is still 30 of 40.
    EXPECT_EQ(75u, cpu_load_percent(ticks(0xFFFFFFF0u, 0, 100, 0), ticks(14, 0, 110, 0)));
}

TEST(CpuRing, MeanOfFilledSlotsRoundsHalvesUp) {
    vorHostOs_Cpu_Util_t node{};
    reset_cpu_info_list(&node);
    vorHoCpuUtilEntry_type &e = node.vorCpu;
    unsigned int avg = 0;
    for (unsigned int v : {10u, 11u})
        compute_avg(CPU_RING_1MIN, v, &avg, e.hdr);
    EXPECT_EQ(11u, avg) << "10.5 rounds up";
    // A full 5-slot ring wraps and averages only its five newest values.
    for (unsigned int v : {1u, 2u, 3u, 4u, 5u, 100u})
        compute_avg(CPU_RING_5MIN, v, &avg, e.hdr);
    EXPECT_EQ(23u, avg) << "(100+2+3+4+5) / 5 = 22.8";
    EXPECT_EQ(1u, e.hdr[CPU_RING_5MIN].next);
    EXPECT_EQ(6u, e.hdr[CPU_RING_5MIN].sample);
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
    void listing(const std::string &text) { root.command("psrinfo", text); }
    // n processors, all on-line unless a listing is given.
    void host(int n, const std::string &text = "") {
        root.write("sys/devices/system/cpu/present", "0-" + std::to_string(n - 1) + "\n");
        std::string all;
        for (int i = 0; i < n; ++i)
            all += std::to_string(i) + "\ton-line   since 11/23/2026 08:00:00\n";
        listing(text.empty() ? all : text);
        root.write("proc/stat", "cpu  0 0 0 0\ncpu0 0 0 0 0\n");
        ASSERT_EQ(1, initCpuUtilTable());
    }
    // One /proc/stat line per processor given (user, kernel, idle, wait).
    void sample(const std::vector<std::vector<uint_t>> &cpus) {
        std::string stat = "cpu  0 0 0 0 0 0 0 0 0 0\n";
        for (size_t i = 0; i < cpus.size(); ++i) {
            if (cpus[i].empty())
                continue; // processor absent from the statistics
            const auto &c = cpus[i];
            stat += "cpu" + std::to_string(i) + " " + std::to_string(c[0]) + " 0 " +
                    std::to_string(c[1]) + " " + std::to_string(c[2]) + " " + std::to_string(c[3]) +
                    " 0 0 0 0 0\n";
        }
        root.write("proc/stat", stat + "btime 1700000000\n");
        ASSERT_EQ(1, refresh_cpuLoad_CB());
    }
    static const vorHoCpuUtilEntry_type &cpu(int i) { return find_cpu_inst(i)->vorCpu; }
};
time_t CpuSampler::now;

TEST_F(CpuSampler, SevenSamplesFillTheMinuteRingAndFeedTheLongRingsTwice) {
    ASSERT_NO_FATAL_FAILURE(host(1));
    sample({{0, 0, 0, 0}});
    uint_t user = 0, idle = 0;
    // 70 % would read 69 (0.7 is stored just below): 80 stands in for it.
    for (uint_t load : {10u, 20u, 30u, 40u, 50u, 60u, 80u}) {
        user += load, idle += 100 - load;
        now += 10;
        sample({{user, 0, idle, 0}});
    }
    const vorHoCpuUtilEntry_type &e = cpu(0);
    EXPECT_EQ(6u, e.hdr[CPU_RING_1MIN].count);
    EXPECT_EQ((std::vector<unsigned>{80, 20, 30, 40, 50, 60}),
              std::vector<unsigned>(e.data_1min, e.data_1min + 6));
    EXPECT_EQ(47, e.cpu_1min); // 280 / 6
    for (int ring : {CPU_RING_5MIN, CPU_RING_30MIN, CPU_RING_60MIN}) {
        EXPECT_EQ(2u, e.hdr[ring].sample) << ring;
        EXPECT_EQ(10u, e.hdr[ring].data[0]) << "fed at the first sample";
        EXPECT_EQ(47u, e.hdr[ring].data[1]) << "and at the seventh";
    }
    EXPECT_EQ(-1, e.cpu_5min) << "70 s after start";
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
        EXPECT_EQ(1u, e.hdr[CPU_RING_60MIN].sample) << "fed even while unknown";
    }
}

TEST_F(CpuSampler, OfflineProcessorsReadZeroAndStatisticsPairByInstance) {
    // Processor 1 is off-line and absent from the statistics.
    ASSERT_NO_FATAL_FAILURE(host(2, "0\ton-line   since x\n1\toff-line  since x\n"));
    sample({{0, 0, 0, 0}, {}});
    sample({{80, 0, 20, 0}, {}});
    EXPECT_EQ(80, cpu(0).cpu_1min);
    EXPECT_EQ(0, cpu(1).cpu_1min);
    // Processor 0 off-line but still counted: its statistic is ignored,
    // processor 1's lands in its own slot, not in the first online one.
    ASSERT_NO_FATAL_FAILURE(host(2, "junk\n-1 on-line\n0 off-line\n1 on-line\n7 on-line\n"));
    sample({{0, 0, 0, 0}, {0, 0, 0, 0}});
    sample({{90, 0, 10, 0}, {50, 0, 50, 0}});
    EXPECT_EQ(0, cpu(0).cpu_1min);
    EXPECT_EQ(50, cpu(1).cpu_1min);
    EXPECT_EQ(0, isOnline(0));
    EXPECT_EQ(1, isOnline(1));
    EXPECT_EQ(0, isOnline(7)) << "no such processor";
}

// A failed sample changes nothing and the next one measures from the last
// good one; a psrinfo that cannot run counts every processor off-line.
TEST_F(CpuSampler, FailuresLoseNothing) {
    ASSERT_NO_FATAL_FAILURE(host(1));
    sample({{0, 0, 0, 0}});
    sample({{30, 0, 70, 0}});
    std::filesystem::remove(root.path + "/proc/stat");
    EXPECT_EQ(0, refresh_cpuLoad_CB());
    EXPECT_EQ(30, cpu(0).cpu_1min);
    EXPECT_EQ(1u, cpu(0).hdr[CPU_RING_1MIN].sample);
    sample({{130, 0, 70, 0}});
    EXPECT_EQ(65, cpu(0).cpu_1min); // (30 + 100) / 2
    std::filesystem::remove(root.path + "/psrinfo");
    now += 60; // the next listing is due
    sample({{230, 0, 70, 0}});
    EXPECT_EQ(0u, cpu(0).data_1min[2]);
}

// The listing (a program started) is taken again only when the processors
// in the statistics change or the last one is a minute old.
TEST_F(CpuSampler, ListingRunsAgainOnlyWhenTheStatisticsChangeOrAfterAMinute) {
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
}

// Far beyond 64 processors: every one gets its row and its own load.
TEST_F(CpuSampler, TwoHundredProcessorsAllGetRowsAndLoads) {
    const int n = 200;
    ASSERT_NO_FATAL_FAILURE(host(n));
    std::vector<std::vector<uint_t>> zero(n, {0, 0, 0, 0}), busy(n, {25, 0, 75, 0});
    busy[n - 1] = {50, 0, 50, 0};
    sample(zero);
    sample(busy);
    int rows = 0;
    for (int i = -1; i == -1 ? getFirstCpuIndex(&i) : getNextCpuIndex(i, &i);)
        ++rows;
    EXPECT_EQ(n, rows);
    EXPECT_EQ(25, cpu(n - 2).cpu_1min);
    EXPECT_EQ(50, cpu(n - 1).cpu_1min);
}

TEST_F(CpuSampler, ReadCpuStatValByCode) {
    ASSERT_NO_FATAL_FAILURE(host(2));
    vorHoCpuUtilEntry_type &e = find_cpu_inst(1)->vorCpu;
    e.cpu_1min = 11, e.cpu_5min = 55, e.cpu_30min = 33, e.cpu_60min = 66;
    strcpy(e.cpu_hwLocation, "slot 3");
    std::vector<int> got;
    for (int code = 1, v; code <= 5; ++code)
        got.push_back(ReadCpuStatVal(1, code, &v) ? v : -99);
    EXPECT_EQ((std::vector<int>{1, 11, 55, 33, 66}), got);
    char text[16];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(1, ReadCpuStatVal(1, 6, text));
    EXPECT_EQ("slot 3#", std::string(text, 7)) << "the bytes without a NUL";
    int v = 12345;
    EXPECT_EQ(0, ReadCpuStatVal(1, 7, &v) + ReadCpuStatVal(2, 1, &v));
    EXPECT_EQ(12345, v);
    EXPECT_EQ(0, getNextCpuIndex(1, &v));
}

} // namespace
