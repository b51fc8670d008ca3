// SPDX-License-Identifier: Apache-2.0
// Kernel statistics, sysinfo and swapctl against fixture trees.
#include "platform/kstat.h"
#include "platform/swapctl.h"
#include "platform/sysinfo.h"
#include "unit_helpers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

const uint64_t kPage = static_cast<uint64_t>(getpagesize());

struct PlatformKstat : ::testing::Test {
    kstat_ctl_t *kc = nullptr;
    void TearDown() override { kstat_close(kc), platform::set_host_root(""); }
    static void use(const char *tree) { use_fixture(std::string("platform/") + tree); }
    void open(const char *tree) {
        use(tree);
        ASSERT_NE(nullptr, kc = kstat_open());
    }
    // A named value read into the statistic's own data; all ones on failure.
    uint64_t value(const char *name, const char *key) {
        kstat_t *ks = kstat_lookup(kc, "unix", 0, name);
        auto *kn = ks && kstat_read(kc, ks, nullptr) != -1
                       ? static_cast<kstat_named_t *>(kstat_data_lookup(ks, key))
                       : nullptr;
        return !kn ? ~0ull : kn->data_type == KSTAT_DATA_UINT64 ? kn->value.ui64 : kn->value.ui32;
    }
    // One processor's ticks in a state, read into a copy; all ones on failure.
    uint_t ticks(int cpu, int state) {
        cpu_stat_t cs;
        kstat_t *ks = kstat_lookup(kc, "cpu_stat", cpu, nullptr);
        return ks && kstat_read(kc, ks, &cs) != -1 ? cs.cpu_sysinfo.cpu[state] : ~0u;
    }
};

TEST_F(PlatformKstat, ChainHoldsSystemStatsThenOnlineProcessorsInOrder) {
    ASSERT_NO_FATAL_FAILURE(open("host"));
    std::vector<std::string> names;
    for (kstat_t *ks = kc->kc_chain; ks; ks = ks->ks_next)
        names.push_back(std::string(ks->ks_module) + ":" + std::to_string(ks->ks_instance) + ":" +
                        ks->ks_name);
    EXPECT_EQ(names, (std::vector<std::string>{"unix:0:system_pages", "unix:0:system_misc",
                                               "cpu_stat:0:cpu_stat0", "cpu_stat:1:cpu_stat1",
                                               "cpu_stat:3:cpu_stat3"}));
    EXPECT_EQ(value("system_pages", "freemem"), 4000000ull * 1024 / kPage);
    EXPECT_EQ(value("system_misc", "ncpus"), 4u);
    // user+nice, system+irq+softirq, idle, iowait; steal counts nowhere.
    EXPECT_EQ((std::vector<uint_t>{110, 55, 1000, 5}),
              (std::vector<uint_t>{ticks(0, CPU_USER), ticks(0, CPU_KERNEL), ticks(0, CPU_IDLE),
                                   ticks(0, CPU_WAIT)}));
    EXPECT_EQ(ticks(1, CPU_USER), 100u) << "2^32 + 100 wraps at 32 bits";
}

// Every read fetches current values, but a pass over the processors shares
// one read of /proc/stat: reading a processor again reads the file afresh.
TEST_F(PlatformKstat, EveryPassOverTheProcessorsReadsTheFileOnce) {
    ASSERT_NO_FATAL_FAILURE(open("host"));
    use("later"); // the same host a moment later, cpu3 gone off-line
    EXPECT_EQ(ticks(0, CPU_USER), 210u);
    EXPECT_EQ(ticks(0, CPU_IDLE), 1100u);
    errno = 0;
    EXPECT_EQ(ticks(3, CPU_USER), ~0u);
    EXPECT_NE(errno, 0);
    use("host");
    EXPECT_EQ(ticks(1, CPU_USER), 200u) << "from the copy cpu0 was read from";
    EXPECT_EQ(ticks(0, CPU_USER), 110u) << "cpu0 again: a fresh copy";
    EXPECT_EQ(ticks(1, CPU_USER), 100u);
    use("later");
    EXPECT_EQ(value("system_pages", "freemem"), 2000000ull * 1024 / kPage);
}

// The wrappers' failure paths are tested with KstatRoutines; these guard
// against reading the wrong kind of statistic.
TEST_F(PlatformKstat, RawStatisticsHaveNoNamesAndForeignOnesNoData) {
    ASSERT_NO_FATAL_FAILURE(open("host"));
    EXPECT_EQ(kstat_data_lookup(kstat_lookup(kc, "cpu_stat", 0, nullptr), "freemem"), nullptr);
    kstat_t foreign{};
    EXPECT_EQ(kstat_read(kc, &foreign, nullptr), -1);
}

TEST_F(PlatformKstat, MalformedStatLinesAreSkippedAndMissingSourcesFailTheRead) {
    ASSERT_NO_FATAL_FAILURE(open("bare"));
    kstat_t *cpu = kstat_lookup(kc, "cpu_stat", -1, nullptr);
    ASSERT_NE(cpu, nullptr);
    EXPECT_EQ(cpu->ks_instance, 1); // the only well-formed line: 4 fields
    EXPECT_EQ(cpu->ks_next, nullptr);
    EXPECT_EQ(ticks(1, CPU_USER), 11u);
    EXPECT_EQ(ticks(1, CPU_WAIT), 0u);
    // No MemAvailable: MemFree stands in.
    EXPECT_EQ(value("system_pages", "freemem"), 250000ull * 1024 / kPage);
}

TEST_F(PlatformKstat, SwapctlReportsPagesInUseAsReserved) {
    anoninfo ai{};
    use("host");
    ASSERT_EQ(solaris::swapctl(SC_AINFO, &ai), 0);
    EXPECT_EQ((std::vector<uint64_t>{ai.ani_max, ai.ani_free, ai.ani_resv}),
              (std::vector<uint64_t>{2097152ull * 1024 / kPage, 1572864ull * 1024 / kPage,
                                     524288ull * 1024 / kPage}));
    use("bare"); // no swap at all
    ai = anoninfo{7, 7, 7};
    ASSERT_EQ(solaris::swapctl(SC_AINFO, &ai), 0);
    EXPECT_EQ(ai.ani_max + ai.ani_free + ai.ani_resv, 0u);
    errno = 0;
    EXPECT_EQ(solaris::swapctl(SC_AINFO + 1, &ai), -1);
    EXPECT_EQ(errno, EINVAL);
    use("missing-tree");
    EXPECT_EQ(solaris::swapctl(SC_AINFO, &ai), -1);
}

TEST(PlatformSysinfo, TruncatesAndReportsTheFullSize) {
    struct utsname u;
    ASSERT_EQ(uname(&u), 0);
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(solaris::sysinfo(SI_RELEASE, small, 3), long(strlen(u.release) + 1));
    EXPECT_EQ(std::string(small), std::string(u.release, 2));
    EXPECT_EQ(small[3], 'x');
    EXPECT_EQ(solaris::sysinfo(SI_RELEASE, nullptr, 0), long(strlen(u.release) + 1));
    errno = 0;
    EXPECT_EQ(solaris::sysinfo(2, small, sizeof(small)), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(solaris::sysinfo(SI_SYSNAME, nullptr, 10), -1);
}

} // namespace
