// Kernel statistics, sysinfo, swapctl and the host path seam, against
// fixture trees and, briefly, the live host.
#include "platform/host_paths.h"
#include "platform/kstat.h"
#include "platform/swapctl.h"
#include "platform/sysinfo.h"
#include "platform/commands.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace {

const std::string kFixtures = std::string(TEMHOSTD_FIXTURES) + "/platform/";
const uint64_t kPage = static_cast<uint64_t>(getpagesize());

class PlatformHost : public ::testing::Test {
  protected:
    void TearDown() override { platform::set_host_root(""); }
    void use(const char *tree) { platform::set_host_root(kFixtures + tree); }
};

const cpu_stat_t &cpu_of(kstat_t *ks) {
    return *static_cast<cpu_stat_t *>(ks->ks_data);
}

TEST_F(PlatformHost, ChainHoldsSystemStatsThenOnlineProcessorsInOrder) {
    use("host");
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    std::vector<std::string> names;
    for (kstat_t *ks = kc->kc_chain; ks; ks = ks->ks_next)
        names.push_back(std::string(ks->ks_module) + ":" + std::to_string(ks->ks_instance) + ":" +
                        ks->ks_name);
    EXPECT_EQ(names, (std::vector<std::string>{"unix:0:system_pages", "unix:0:system_misc",
                                               "cpu_stat:0:cpu_stat0", "cpu_stat:1:cpu_stat1",
                                               "cpu_stat:3:cpu_stat3"}));
    kstat_t *ks = kstat_lookup(kc, "unix", 0, "system_pages");
    ASSERT_NE(kstat_read(kc, ks, nullptr), -1);
    auto *kn = static_cast<kstat_named_t *>(kstat_data_lookup(ks, "freemem"));
    ASSERT_NE(kn, nullptr);
    EXPECT_EQ(kn->data_type, KSTAT_DATA_UINT64);
    EXPECT_EQ(kn->value.ui64, 4000000ull * 1024 / kPage);

    ks = kstat_lookup(kc, "unix", 0, "system_misc");
    ASSERT_NE(kstat_read(kc, ks, nullptr), -1);
    EXPECT_EQ(static_cast<kstat_named_t *>(kstat_data_lookup(ks, "ncpus"))->value.ui32, 4u);
    kstat_close(kc);
}

TEST_F(PlatformHost, CpuTicksMapOntoSolarisStatesAndWrapAt32Bits) {
    use("host");
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    cpu_stat_t copy;
    memset(&copy, 0xff, sizeof(copy));
    kstat_t *ks = kstat_lookup(kc, "cpu_stat", 0, "cpu_stat0");
    ASSERT_NE(kstat_read(kc, ks, &copy), -1);
    // user+nice, system+irq+softirq, idle, iowait; steal (7) counts nowhere.
    EXPECT_EQ(copy.cpu_sysinfo.cpu[CPU_USER], 110u);
    EXPECT_EQ(copy.cpu_sysinfo.cpu[CPU_KERNEL], 55u);
    EXPECT_EQ(copy.cpu_sysinfo.cpu[CPU_IDLE], 1000u);
    EXPECT_EQ(copy.cpu_sysinfo.cpu[CPU_WAIT], 5u);
    ks = kstat_lookup(kc, nullptr, 1, nullptr);
    ASSERT_NE(kstat_read(kc, ks, nullptr), -1);
    EXPECT_EQ(cpu_of(ks).cpu_sysinfo.cpu[CPU_USER], 100u); // 2^32 + 100
    kstat_close(kc);
}

TEST_F(PlatformHost, EveryReadFetchesCurrentValues) {
    use("host");
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    kstat_t *cpu0 = kstat_lookup(kc, "cpu_stat", 0, nullptr);
    kstat_t *cpu3 = kstat_lookup(kc, "cpu_stat", 3, nullptr);
    kstat_t *pages = kstat_lookup(kc, "unix", -1, "system_pages");
    use("later"); // the same host a moment later, cpu3 gone off-line
    ASSERT_NE(kstat_read(kc, cpu0, nullptr), -1);
    EXPECT_EQ(cpu_of(cpu0).cpu_sysinfo.cpu[CPU_USER], 210u);
    EXPECT_EQ(cpu_of(cpu0).cpu_sysinfo.cpu[CPU_IDLE], 1100u);
    ASSERT_NE(kstat_read(kc, pages, nullptr), -1);
    EXPECT_EQ(static_cast<kstat_named_t *>(kstat_data_lookup(pages, "freemem"))->value.ui64,
              2000000ull * 1024 / kPage);
    errno = 0;
    EXPECT_EQ(kstat_read(kc, cpu3, nullptr), -1);
    EXPECT_NE(errno, 0);
    kstat_close(kc);
}

TEST_F(PlatformHost, FailuresReturnNullOrMinusOneWithErrno) {
    use("host");
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    errno = 0;
    EXPECT_EQ(kstat_lookup(kc, "unix", 0, "no_such_stat"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(kstat_lookup(kc, "cpu_stat", 2, nullptr), nullptr); // off-line
    kstat_t *ks = kstat_lookup(kc, "unix", 0, "system_pages");
    errno = 0;
    EXPECT_EQ(kstat_data_lookup(ks, "no_such_key"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(kstat_data_lookup(kstat_lookup(kc, "cpu_stat", 0, nullptr), "freemem"), nullptr);
    kstat_t foreign{};
    EXPECT_EQ(kstat_read(kc, &foreign, nullptr), -1);
    kstat_close(kc);

    use("missing-tree");
    errno = 0;
    EXPECT_EQ(kstat_open(), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PlatformHost, MalformedStatLinesAreSkippedAndMissingSourcesFailTheRead) {
    use("bare");
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    kstat_t *cpu = kstat_lookup(kc, "cpu_stat", -1, nullptr);
    ASSERT_NE(cpu, nullptr);
    EXPECT_EQ(cpu->ks_instance, 1); // the only well-formed line: 4 fields
    EXPECT_EQ(cpu->ks_next, nullptr);
    EXPECT_EQ(cpu_of(cpu).cpu_sysinfo.cpu[CPU_USER], 11u);
    EXPECT_EQ(cpu_of(cpu).cpu_sysinfo.cpu[CPU_WAIT], 0u);
    // No MemAvailable: MemFree stands in. No present list: no ncpus.
    kstat_t *pages = kstat_lookup(kc, "unix", 0, "system_pages");
    ASSERT_NE(kstat_read(kc, pages, nullptr), -1);
    EXPECT_EQ(static_cast<kstat_named_t *>(kstat_data_lookup(pages, "freemem"))->value.ui64,
              250000ull * 1024 / kPage);
    EXPECT_EQ(kstat_read(kc, kstat_lookup(kc, "unix", 0, "system_misc"), nullptr), -1);
    kstat_close(kc);
}

TEST_F(PlatformHost, SwapctlReportsPagesInUseAsReserved) {
    anoninfo ai{};
    use("host");
    ASSERT_EQ(solaris::swapctl(SC_AINFO, &ai), 0);
    EXPECT_EQ(ai.ani_max, 2097152ull * 1024 / kPage);
    EXPECT_EQ(ai.ani_free, 1572864ull * 1024 / kPage);
    EXPECT_EQ(ai.ani_resv, 524288ull * 1024 / kPage);
    use("bare");
    ai = anoninfo{7, 7, 7};
    ASSERT_EQ(solaris::swapctl(SC_AINFO, &ai), 0);
    EXPECT_EQ(ai.ani_max + ai.ani_free + ai.ani_resv, 0u);
    errno = 0;
    EXPECT_EQ(solaris::swapctl(SC_AINFO + 1, &ai), -1);
    EXPECT_EQ(errno, EINVAL);
    use("missing-tree");
    EXPECT_EQ(solaris::swapctl(SC_AINFO, &ai), -1);
}

TEST_F(PlatformHost, SysinfoTruncatesAndReportsTheFullSize) {
    struct utsname u;
    ASSERT_EQ(uname(&u), 0);
    char buf[256];
    EXPECT_EQ(solaris::sysinfo(SI_SYSNAME, buf, sizeof(buf)), long(strlen(u.sysname) + 1));
    EXPECT_STREQ(buf, u.sysname);
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(solaris::sysinfo(SI_RELEASE, small, 3), long(strlen(u.release) + 1));
    EXPECT_EQ(std::string(small), std::string(u.release, 2));
    EXPECT_EQ(small[3], 'x');
    EXPECT_EQ(solaris::sysinfo(SI_RELEASE, nullptr, 0), long(strlen(u.release) + 1));
    errno = 0;
    EXPECT_EQ(solaris::sysinfo(2, buf, sizeof(buf)), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(solaris::sysinfo(SI_SYSNAME, nullptr, 10), -1);
}

TEST_F(PlatformHost, PathsFollowTheSetters) {
    platform::set_host_root("/srv/fixture/");
    EXPECT_EQ(platform::host_path("/proc/stat"), "/srv/fixture/proc/stat");
    platform::set_host_root("");
    EXPECT_EQ(platform::host_path("/proc/stat"), "/proc/stat");

    char exe[4096];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    ASSERT_GT(n, 0);
    std::string bin(exe, static_cast<size_t>(n));
    bin.resize(bin.rfind('/'));
    const std::string dflt = bin.substr(0, bin.rfind('/')) + "/libexec/temhostd";
    EXPECT_EQ(platform::command_dir(), dflt);
    EXPECT_EQ(std::string(platform::svcs_path()), dflt + "/svcs");
    const char *first = platform::psrinfo_path();
    EXPECT_EQ(platform::psrinfo_path(), first); // stable while the directory is
    platform::set_command_dir("/opt/x");
    EXPECT_STREQ(platform::modinfo_path(), "/opt/x/modinfo");
    EXPECT_STREQ(platform::pkginfo_path(), "/opt/x/pkginfo");
    EXPECT_STREQ(platform::ps_path(), "ps");
    platform::set_command_dir(dflt);
}

// The live host: loose bounds only, values move while we look.
TEST_F(PlatformHost, LiveHostStatisticsAreSane) {
    kstat_ctl_t *kc = kstat_open();
    ASSERT_NE(kc, nullptr);
    kstat_t *misc = kstat_lookup(kc, "unix", 0, "system_misc");
    ASSERT_NE(kstat_read(kc, misc, nullptr), -1);
    EXPECT_GE(static_cast<kstat_named_t *>(kstat_data_lookup(misc, "ncpus"))->value.ui32, 1u);

    kstat_t *pages = kstat_lookup(kc, "unix", 0, "system_pages");
    ASSERT_NE(kstat_read(kc, pages, nullptr), -1);
    double freemem = static_cast<double>(
        static_cast<kstat_named_t *>(kstat_data_lookup(pages, "freemem"))->value.ui64);
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    double avail_kb = 0;
    while (meminfo >> key && key != "MemAvailable:")
        meminfo.ignore(256, '\n');
    meminfo >> avail_kb;
    EXPECT_GT(freemem, 0);
    EXPECT_NEAR(freemem * kPage, avail_kb * 1024, avail_kb * 1024 * 0.1);

    auto total_ticks = [&] {
        uint64_t sum = 0;
        for (kstat_t *ks = kc->kc_chain; ks; ks = ks->ks_next) {
            cpu_stat_t cs;
            if (strncmp(ks->ks_name, "cpu_stat", 8) == 0 && kstat_read(kc, ks, &cs) != -1)
                for (uint_t t : cs.cpu_sysinfo.cpu)
                    sum += t;
        }
        return sum;
    };
    uint64_t before = total_ticks();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_GT(total_ticks(), before);
    kstat_close(kc);
}

} // namespace
