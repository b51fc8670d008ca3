// SPDX-License-Identifier: Apache-2.0
// The data providers, the status record and the trap module.
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostCpu_interface.h"
#include "interface/KyOrblHostFs_interface.h"
#include "interface/KyOrblHostMemory_interface.h"
#include "interface/KyOrblHostOsInfo_interface.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/KyOrblNetSnmp_helpers.h"
#include "interface/fs_exclude.h"
#include "interface/sw_checks.h"
#include "interface/sw_watch.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/object_map.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "platform/swapctl.h"
#include "unit_helpers.h"

namespace {

// Telnet's state from what a stand-in svcs prints; the command runs through
// the shell from a directory whose name needs quoting.
TEST(HostOsInfo, TelnetOnlineOnlyWhenItsLineSaysSo) {
    ScratchDir dir;
    const std::pair<const char *, int> cases[] = {{"online", 2}, {"disabled", 3}};
    for (const auto &[state, expected] : cases) {
        dir.command("svcs", std::string(state) + "   Nov_22   svc:/network/telnet:default\n");
        EXPECT_EQ(expected, get_HostOSTelnet()) << state;
    }
}

// A host with whatever memory a test needs, 4 kB pages.
struct FakeHost {
    long phys_pages;
    uint64_t freemem;
    anoninfo swap;
} fake;

const MemorySource fake_source = {
    [](int name) { return name == _SC_PAGESIZE ? 4096L : fake.phys_pages; }, [] { return 4096; },
    [] { return fake.freemem; },
    [](int, void *arg) {
        *static_cast<anoninfo *>(arg) = fake.swap;
        return 0;
    }};

// Physical size and free, paging space size and free, in MB.
std::vector<long> figures() {
    return {get_PhysicalMemorySizeMB(), get_PhysicalMemoryFreeMB(), get_VirtualMemorySizeMB(),
            get_VirtualMemoryFreeMB()};
}

TEST(HostMemory, SizeRoundsUpReservedSwapIsNotFreeAndHugeHostsSaturate) {
    set_memory_source(&fake_source);
    p_pagetok = nullptr; // the converter is otherwise chosen once per process
    fake = {262144, 1000, {131072, 0, 32768}};
    EXPECT_EQ((std::vector<long>{1025, 3, 512, 384}), figures());
    fake = {1L << 42, 1ULL << 42, {1UL << 42, 0, 0}}; // past a 32-bit INTEGER even in MB
    EXPECT_EQ(std::vector<long>(4, INT_MAX), figures());
    set_memory_source(nullptr);
    p_pagetok = nullptr;
}

fs_usage fs_figures(unsigned long frsize, unsigned long bsize, uint64_t blocks, uint64_t bfree) {
    struct statvfs v = {};
    v.f_frsize = frsize, v.f_bsize = bsize, v.f_blocks = blocks, v.f_bfree = bfree;
    fs_usage u{};
    fill_fs_figures(&u, v);
    return u;
}

TEST(FsFigures, WorkedExamplesZeroRulesAndRandomInputs) {
    const struct {
        unsigned long frsize, bsize;
        uint64_t blocks, bfree;
        long total, used;
        uintmax_t percent;
        const char *what;
    } cases[] = {
        {4096, 8192, 1000000, 250000, 3906, 2930, 76, "75.0 % plus one"},
        {4096, 4096, 1000000, 0, 3906, 3906, 101, "full reads 101"},
        {4096, 4096, 200, 100, 0, 0, 0, "under 1 MB"},
        {0, 4096, 1000000, 250000, 3906, 3906, 76, "no fragment size: nothing counts as free"},
        {4096, 4096, 0, 0, 0, 0, 0, "no blocks"},
        {4096, 4096, 1ull << 40, (1ull << 40) - 256, INT32_MAX, 1, 1, "4 EiB: the size clamps"},
    };
    for (const auto &c : cases) {
        const fs_usage u = fs_figures(c.frsize, c.bsize, c.blocks, c.bfree);
        EXPECT_EQ(c.total, u.fsu_totalMB) << c.what;
        EXPECT_EQ(c.used, u.fsu_usedMB) << c.what;
        EXPECT_EQ(c.percent, u.fsu_percent) << c.what;
    }
    // Random 32-bit inputs against the figures as first defined, in doubles.
    std::mt19937_64 rng(42);
    const uint32_t sizes[] = {0, 512, 4096, 65536, 1u << 20};
    for (int i = 0; i < 200000; ++i) {
        const uint32_t frsize = sizes[rng() % 5], bsize = sizes[rng() % 5];
        const uint32_t blocks = static_cast<uint32_t>(rng()) >> (rng() % 32);
        // Mostly sane, sometimes more free than total blocks.
        const uint32_t bfree = static_cast<uint32_t>(rng() % 8 ? rng() % (blocks + 1ull) : rng());
        const double total_d = double(frsize ? frsize : bsize) * blocks / 1048576.0;
        const double free_d = double(frsize) * bfree / 1048576.0;
        if (total_d > INT32_MAX || free_d > INT32_MAX)
            continue; // beyond a 32-bit long: undefined there
        const long total = long(total_d), used = blocks == 0 ? 0 : total - long(free_d);
        const uintmax_t pct = total == 0 || used == 0
                                  ? 0
                                  : uintmax_t(uint32_t(blocks - bfree) * 100.0 / blocks + 1.0);
        const fs_usage u = fs_figures(frsize, bsize, blocks, bfree);
        ASSERT_TRUE(total == u.fsu_totalMB && used == u.fsu_usedMB && pct == u.fsu_percent)
            << frsize << "/" << bsize << " " << blocks << " " << bfree;
    }
}

// The fixture mounts the pseudo types on "/", so that only their exclusion
// keeps them out, and names a mount point gone since; every rebuild
// numbers its rows from 0, and the operator's exclusions take no index.
TEST(FsList, PseudoTypesAndVanishedMountsLeftOutRowsFromZero) {
    use_fixture("fs/mixed");
    const struct {
        const char *types, *path;
        std::vector<std::string> rows;
    } cases[] = {
        {nullptr, nullptr, {"/dev/sda1 On /", "tmpfs On /tmp"}},
        {"tmpfs", nullptr, {"/dev/sda1 On /"}},
        {nullptr, "/", {"tmpfs On /tmp"}},
        {"ext4", "/t*", {}},
    };
    for (const auto &c : cases) {
        std::string types = c.types ? c.types : "", path = c.path ? c.path : "";
        if (c.types)
            parse_fsExcludeType(FS_EXCLUDE_TYPE_TOKEN, types.data());
        if (c.path)
            parse_fsExcludePath(FS_EXCLUDE_PATH_TOKEN, path.data());
        for (int rebuild = 0; rebuild < 2; ++rebuild) {
            refresh_flist_CB();
            std::vector<std::string> rows;
            for (const vorHost_fs_usage_t *n = FileSysUsageList; n; n = n->next) {
                EXPECT_EQ(static_cast<int>(rows.size()), n->pFsUsage->index);
                rows.emplace_back(n->pFsUsage->vorHoFileSysDesc);
            }
            EXPECT_EQ(c.rows, rows) << types << " " << path;
        }
        free_fsExcludeType();
        free_fsExcludePath();
    }
    erase_fs_container();
    platform::set_host_root("");
}

// The log lines of the configuration reader, kept while one is alive.
struct LogLines {
    static std::string text;
    netsnmp_log_handler *handler;
    LogLines() : handler(netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG)) {
        text.clear();
        snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, keep, nullptr);
    }
    ~LogLines() {
        snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, keep, nullptr, 0);
        netsnmp_remove_loghandler(handler);
    }
    static int keep(int, int, void *message, void *) {
        text += static_cast<snmp_log_message *>(message)->msg;
        return 0;
    }
};
std::string LogLines::text;

// The exclusions' forms, and the lines that add nothing with their reason.
TEST(FsExclude, DirectiveFormsAndErrors) {
    const struct {
        const char *token, *line, *error;
        std::vector<std::pair<std::string, std::string>> excluded, kept; // type, mount point
    } cases[] = {
        {"fsExcludeType", "overlay", nullptr, {{"overlay", "/a"}}, {{"overlayfs", "/a"}}},
        {"fsExcludeType",
         " overlay , nsfs\ttmpfs,",
         nullptr,
         {{"overlay", "/"}, {"nsfs", "/run/netns/x"}, {"tmpfs", "/t"}},
         {{"ext4", "/"}}},
        {"fsExcludeType", "fuse.sshfs", nullptr, {{"fuse.sshfs", "/m"}}, {{"fuse", "/m"}}},
        {"fsExcludeType", "", "missing file system type", {}, {}},
        {"fsExcludeType", " , ", "missing file system type", {}, {}},
        {"fsExcludeType",
         "nsfs overlay*",
         "not a file system type \"overlay*\"",
         {},
         {{"nsfs", "/"}}},
        {"fsExcludePath",
         "/var/lib/docker/*",
         nullptr,
         {{"ext4", "/var/lib/docker/overlay2/abc/merged"}, {"ext4", "/var/lib/docker/"}},
         {{"ext4", "/var/lib/docker"}, {"ext4", "/var/lib/dockerd/x"}}},
        {"fsExcludePath",
         "\"/mnt/my disk\"",
         nullptr,
         {{"ext4", "/mnt/my disk"}},
         {{"ext4", "/mnt/my"}}},
        {"fsExcludePath",
         "*/merged",
         nullptr,
         {{"ext4", "/a/b/merged"}},
         {{"ext4", "/a/merged/b"}}},
        {"fsExcludePath", "[/]run/k?s", nullptr, {{"ext4", "/run/k8s"}}, {{"ext4", "/run/k88s"}}},
        {"fsExcludePath", "", "missing pattern", {}, {}},
        {"fsExcludePath", "/mnt/my disk", "unexpected word", {}, {{"ext4", "/mnt/my"}}},
        {"fsExcludePath", "docker/*", "pattern matches no mount point", {}, {{"ext4", "docker/x"}}},
    };
    for (const auto &c : cases) {
        LogLines log;
        std::string line = c.line;
        if (strcmp(c.token, FS_EXCLUDE_TYPE_TOKEN) == 0)
            parse_fsExcludeType(c.token, line.data());
        else
            parse_fsExcludePath(c.token, line.data());
        if (c.error)
            EXPECT_NE(std::string::npos, log.text.find(std::string(c.token) + ": " + c.error))
                << c.line << ": " << log.text;
        else
            EXPECT_EQ("", log.text) << c.line;
        for (const auto &[type, point] : c.excluded)
            EXPECT_TRUE(fs_excluded(type.c_str(), point.c_str())) << c.line << " " << point;
        for (const auto &[type, point] : c.kept)
            EXPECT_FALSE(fs_excluded(type.c_str(), point.c_str())) << c.line << " " << point;
        free_fsExcludeType();
        free_fsExcludePath();
    }
    EXPECT_FALSE(fs_excluded("overlay", "/var/lib/docker/x")) << "nothing left after the reset";
}

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

TEST(SwVerKinds, FirstFilterMatchingACaseSensitivePrefix) {
    const std::pair<const char *, int> kinds[] = {
        {"KYQtarnX", 2},   {"e1000e", 2}, {"KYQtem", 3},     {"KYQsorrel", 4}, {"KYQvane", 4},
        {"net-snmp-x", 5}, {"kyq", 5},    {"KYQCoveAgt", 0}, {"Kyqtem", 0},    {"vorlynx3", 0},
    };
    for (const auto &[name, kind] : kinds)
        EXPECT_EQ(kind, is_eligible_pkg(name)) << name;
}

// The process list: a grep for a program shows its name too.
bool fake_ps(const char *, std::vector<std::string> *lines) {
    *lines = {"root 8 1 0 10:00 ? 00:00:01 /usr/bin/temhostd",
              "root 9 5 0 10:00 ? 00:00:00 grep kywispd"};
    return true;
}

struct SwVer : ::testing::Test {
    void SetUp() override { set_swver_command_runner(fake_ps); }
    void TearDown() override {
        cleanup_swver_list();
        set_swver_command_runner(nullptr);
        free_softwareWatch();
    }
    static void parse(const std::string &listing) {
        FILE *fp = fmemopen(const_cast<char *>(listing.data()), listing.size(), "r");
        ASSERT_NE(nullptr, fp);
        read_pkg_listing(fp, get_current_status);
        fclose(fp);
    }
    static std::string pkg(const std::string &name, const std::string &synopsis = "x") {
        return name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ') + synopsis +
               "\n              (amd64) 1.0\n";
    }
};

// A hundred rows at most; a line longer than the read buffer keeps each
// package's two lines paired. The next index runs out past the hundredth.
TEST_F(SwVer, RowsWithTheirStatesAHundredAtMost) {
    std::string listing = pkg("KYQwisp", std::string(400, 'w'));
    for (int i = 1; i <= 120; ++i)
        listing += pkg("KYQtem" + std::to_string(i));
    parse(listing);
    std::vector<std::string> rows; // "index name kind state"
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
        const swver_t *r = n->vorSwverEntry;
        rows.push_back(std::to_string(r->index) + " " + r->name + " " + std::to_string(r->type) +
                       " " + std::to_string(r->status));
    }
    ASSERT_EQ(100u, rows.size());
    EXPECT_EQ("1 KYQwisp 5 3", rows.front()) << "only the grep shows its program";
    EXPECT_EQ("100 KYQtem99 3 2", rows.back());
    EXPECT_EQ(100, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(101, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(-1, g_NextIndex);
    g_NextIndex = 100; // what the rows still in the list account for
}

// The phases of a SET come in messages of their own: a rebuild between
// RESERVE1 and ACTION may give an index to another package (the node the
// iterator kept is freed). That varbind fails and changes no package; UNDO
// puts back what the varbinds before it changed, in the row and in the
// edits that later rebuilds apply.
TEST_F(SwVer, SetPhasesHoldTheirPackageAndUndoWhatActionChanged) {
    parse(pkg("KYQvane") + pkg("KYQtem"));
    struct Varbind {
        long index, kind;
        netsnmp_variable_list var{}, idx{};
        netsnmp_table_request_info table_info{};
        netsnmp_request_info request{};
    } sets[2];
    const std::pair<int, long> what[] = {{SWVER_TYPE, 1}, {SWVER_DESCRIPTION, 2}}; // column, row
    for (int i = 0; i < 2; ++i) {
        Varbind &v = sets[i];
        v.index = what[i].second, v.kind = 2;
        v.idx.type = ASN_INTEGER, v.idx.val.integer = &v.index, v.idx.val_len = sizeof(long);
        v.var.type = i ? ASN_OCTET_STR : ASN_INTEGER, v.var.val_len = i ? 3 : sizeof(long);
        v.var.val.string = i ? reinterpret_cast<u_char *>(const_cast<char *>("new"))
                             : reinterpret_cast<u_char *>(&v.kind);
        v.table_info.colnum = what[i].first, v.table_info.indexes = &v.idx;
        v.request.requestvb = &v.var;
        v.request.next = i ? nullptr : &sets[1].request;
        v.request.prev = i ? &sets[0].request : nullptr;
        netsnmp_request_add_list_data(
            &v.request, netsnmp_create_data_list(TABLE_HANDLER_NAME, &v.table_info, nullptr));
        netsnmp_request_add_list_data(
            &v.request, netsnmp_create_data_list(TABLE_ITERATOR_NAME, swVerList, nullptr));
    }
    netsnmp_agent_request_info reqinfo{};
    const auto phase = [&](int mode) {
        reqinfo.mode = mode;
        return vorHoSwVerTable_handler(nullptr, nullptr, &reqinfo, &sets[0].request);
    };
    const auto rows = [] {
        std::string out;
        for (const vorHo_Swver_t *n = swVerList; n; n = n->next)
            out += std::string(n->vorSwverEntry->name) + " " +
                   std::to_string(n->vorSwverEntry->type) + " " + n->vorSwverEntry->description[0] +
                   "|";
        return out;
    };
    ASSERT_EQ(SNMP_ERR_NOERROR, phase(MODE_SET_RESERVE1));
    parse(pkg("KYQvane") + pkg("KYQsorrel") + pkg("KYQtem")); // KYQtem moves to row 3
    EXPECT_EQ(SNMP_ERR_GENERR, phase(MODE_SET_ACTION));
    EXPECT_EQ("KYQvane 2 x|KYQsorrel 4 x|KYQtem 3 x|", rows()) << "the kind is set, nothing else";
    phase(MODE_SET_UNDO);
    EXPECT_EQ("KYQvane 4 x|KYQsorrel 4 x|KYQtem 3 x|", rows());
    parse(pkg("KYQvane") + pkg("KYQtem"));
    EXPECT_EQ("KYQvane 4 x|KYQtem 3 x|", rows()) << "no edit left to apply";
    // The same SET without the rebuild: both applied and kept by a rebuild,
    // KYQtem's description although it is the package's only edit.
    for (Varbind &v : sets)
        v.request.status = 0, v.request.processed = 0;
    ASSERT_EQ(SNMP_ERR_NOERROR, phase(MODE_SET_RESERVE1));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(MODE_SET_ACTION));
    parse(pkg("KYQtem") + pkg("KYQvane"));
    EXPECT_EQ("KYQtem 3 n|KYQvane 2 x|", rows());
    for (Varbind &v : sets)
        netsnmp_free_all_list_data(v.request.parent_data);
    while (altered_swver_entry *edit = alterList) { // edits live for the run
        alterList = edit->next;
        delete edit;
    }
}

// Rows of the filters and of the watch list ask the process lists (the
// filters' "ps -aef" lines, the watch list's names) and the module list:
// each runs once per refresh whatever the rows, and again next time.
std::map<std::string, int> g_runs;
// The name listing: the command name in 64 columns, then the executable.
std::string named(const std::string &comm, const std::string &exe) {
    return comm + std::string(64 - comm.size(), ' ') + " " + exe;
}
bool fake_lists(const char *command, std::vector<std::string> *lines) {
    ++g_runs[command];
    if (strstr(command, "args")) // script daemons, and look-alikes by exec -a
        *lines = {named("networkd-dispat",
                        "/usr/bin/python3 /usr/bin/networkd-dispatcher --run-startup-triggers"),
                  named("unattended-upgr", "/usr/bin/python3 -E "
                                           "/usr/share/unattended-upgrades/"
                                           "unattended-upgrade-shutdown --wait-for-signal"),
                  named("sleep", "long-named-sleeperd 600"),
                  named("cat", "cat /etc/long-named-sleeperd"),
                  named("long-named-slee", "long-named-sleeperd /tmp/long-named-sleeper 600"),
                  named("long-named-slee", "/bin/sh")};
    else if (strstr(command, "comm"))
        *lines = {named("sleep", "/usr/bin/sleep"),
                  named("grepperd", "/usr/sbin/grepperd"),
                  named("kworker/0:1-events", "-"),
                  named("pydaemon", "/usr/bin/python3.11"),
                  named("averyveryverylo", "/opt/x/averyveryverylongd (deleted)"),
                  named("networkd-dispat", "/usr/bin/python3.11"),
                  named("unattended-upgr", "/usr/bin/python3.11"),
                  named("long-named-slee", "/tmp/long-named-sleeper")};
    else
        *lines = {"root 8 1 0 10:00 ? 00:00:01 /usr/bin/temhostd",
                  "root 9 1 0 10:00 ? 00:00:00 nginxd 1e9",
                  "  1 c0a00000  f5000    -   1  mydrv (mydrv)"};
    return true;
}
TEST_F(SwVer, EachListRunsOncePerRefreshAndWatchedNamesMatchWhole) {
    for (std::string line :
         {"agent temhostd process grepperd", "driver mydrv module mydrv", "5 nginx process nginxd"})
        parse_softwareWatch(SWVER_WATCH_TOKEN, line.data());
    ScratchDir dir;
    dir.command("pkginfo", pkg("KYQvane") + pkg("KYQtem") + pkg("VORlynx3", "VOR nic") +
                               pkg("temhostd") + pkg("mydrv-dkms") + pkg("nginx"));
    set_swver_command_runner(fake_lists);
    for (int refresh = 0; refresh < 2; ++refresh) {
        g_runs.clear();
        ASSERT_EQ(1, refresh_SwverLoad_CB());
        EXPECT_EQ(3u, g_runs.size());
        for (const auto &[command, runs] : g_runs)
            EXPECT_EQ(1, runs) << command;
    }
    std::vector<std::string> states;
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next)
        states.push_back(std::string(n->vorSwverEntry->name) + " " +
                         std::to_string(n->vorSwverEntry->status));
    EXPECT_EQ(states, (std::vector<std::string>{"KYQvane 1", "KYQtem 2", "VORlynx3 3", "temhostd 2",
                                                "mydrv-dkms 2", "nginx 3"}));
    // A watched NAME is a command name or an executable's file name, whole:
    // not an argument (exec -a), not a part of a name or a path. A longer
    // name is also a script: its name cut to 15 and its path after the
    // interpreter (and one argument of the "#!" line), never the first
    // argument, which exec -a writes.
    for (const char *name : {"sleep", "grepperd", "python3.11", "pydaemon", "averyveryverylongd",
                             "networkd-dispatcher", "unattended-upgrade-shutdown"})
        EXPECT_EQ(2, sw_check(CHECK_PROCESS_NAME, name)) << name;
    for (const char *name :
         {"nginxd", "grep", "sleepe", "sbin/grepperd", "events", "-", "", "long-named-sleeperd",
          "networkd-dispatcherd", "networkd-dispatche", "unattended-upgrades", "wait-for-signal"})
        EXPECT_EQ(3, sw_check(CHECK_PROCESS_NAME, name)) << name;
}

// systemctl show's blocks, one per unit asked for in that order; "--" marks
// the end of the command's options, after which the units come.
std::string g_units_out;
bool g_units_ran = true;
bool fake_systemctl(const char *command, std::vector<std::string> *lines) {
    ++g_runs[command];
    if (!strstr(command, "/bin/systemctl show --property=LoadState,ActiveState -- "))
        return fake_lists(command, lines);
    for (size_t at = 0; at < g_units_out.size();) {
        const size_t end = std::min(g_units_out.find('\n', at), g_units_out.size());
        lines->push_back(g_units_out.substr(at, end - at));
        at = end + 1;
    }
    return g_units_ran;
}

// The watch list's unit form: the names it takes as systemd would, the ones
// it refuses with the reason, and the states of one "systemctl show" of
// every watched unit, asked once per refresh.
TEST_F(SwVer, UnitWatchFormsErrorsAndStates) {
    const struct {
        const char *line, *unit_or_error;
    } lines[] = {
        {"agent nginx unit nginx", "nginx.service"},
        {"5 cron unit cron.service", "cron.service"},
        {"utility ssh unit ssh.socket", "ssh.socket"},
        {"5 getty unit getty@tty1", "getty@tty1.service"},
        {"5 dbus unit dbus.broker", "dbus.broker.service"},
        {"5 gone unit gone", "gone.service"},
        {"5 rel unit rel.service", "rel.service"},
        {"5 act unit act.service", "act.service"},
        {"5 esc unit mnt-a\\\\x2db.mount", "mnt-a\\x2db.mount"}, // the reader's escape
        {"5 bad unit", "!missing name after \"unit\""},
        {"5 bad unit it's", "!not a unit name \"it's\""},
        {"5 bad unit tmpl@.service", "!not a unit name"},
        {"5 bad unit @x", "!not a unit name"},
        {"5 bad unit a.service b", "!unexpected word \"b\""},
        {"5 bad unitx a", "!unknown check \"unitx\""},
    };
    for (const auto &l : lines) {
        LogLines log;
        std::string line = l.line;
        parse_softwareWatch(SWVER_WATCH_TOKEN, line.data());
        const std::string prefix =
            line.substr(line.find(' ') + 1, line.find(" unit") - line.find(' ') - 1);
        const WatchLine *w = sw_watch_for(prefix.c_str());
        if (l.unit_or_error[0] == '!') {
            EXPECT_EQ(nullptr, w) << l.line;
            EXPECT_NE(std::string::npos, log.text.find(l.unit_or_error + 1)) << log.text;
        } else {
            ASSERT_NE(nullptr, w) << l.line << ": " << log.text;
            EXPECT_EQ(CHECK_UNIT, w->check);
            EXPECT_EQ(l.unit_or_error, w->exe);
        }
    }
    ScratchDir dir;
    dir.command("pkginfo", pkg("nginx") + pkg("cron") + pkg("ssh") + pkg("getty") + pkg("dbus") +
                               pkg("gone") + pkg("rel") + pkg("act"));
    set_swver_command_runner(fake_systemctl);
    const auto states = [] {
        std::string out;
        for (const vorHo_Swver_t *n = swVerList; n; n = n->next)
            out += std::to_string(n->vorSwverEntry->status);
        return out;
    };
    const auto block = [](const char *load, const char *active) {
        return std::string("ActiveState=") + active + "\nLoadState=" + load + "\n";
    };
    g_units_out = block("loaded", "active") + "\n" + block("loaded", "failed") + "\n" +
                  block("loaded", "inactive") + "\n" + block("loaded", "activating") + "\n" +
                  block("masked", "deactivating") + "\n" + block("not-found", "inactive") + "\n" +
                  block("loaded", "reloading") + "\n" + block("loaded", "active") + "\n" +
                  block("loaded", "active") + "\n";
    for (int refresh = 0; refresh < 2; ++refresh) {
        g_runs.clear();
        ASSERT_EQ(1, refresh_SwverLoad_CB());
        ASSERT_EQ(1u, g_runs.size());
        EXPECT_EQ(1, g_runs.begin()->second);
        EXPECT_NE(std::string::npos,
                  g_runs.begin()->first.find(
                      " -- 'nginx.service' 'cron.service' 'ssh.socket' 'getty@tty1.service' "
                      "'dbus.broker.service' 'gone.service' 'rel.service' 'act.service' "
                      "'mnt-a\\x2db.mount'"))
            << g_runs.begin()->first;
        EXPECT_EQ("23333122", states()) << "nginx cron ssh getty dbus gone rel act";
    }
    // One block short (an error part way), a block without a state, or no
    // systemctl at all: what cannot be placed is unknown.
    for (int blocks : {2, 10}) {
        g_units_out.clear();
        for (int i = 0; i < blocks; ++i)
            g_units_out += block("loaded", "active") + "\n";
        refresh_SwverLoad_CB();
        EXPECT_EQ("11111111", states()) << blocks << " blocks";
    }
    g_units_out = "LoadState=loaded\n\n" + block("loaded", "failed") + "\n" + std::string(6, '\n') +
                  "\n" + "ActiveState=active\n\n";
    for (int i = 0; i < 6; ++i)
        g_units_out += block("loaded", "active") + "\n";
    refresh_SwverLoad_CB();
    EXPECT_EQ("13122222", states());
    g_units_out.clear(), g_units_ran = false;
    refresh_SwverLoad_CB();
    EXPECT_EQ("11111111", states());
    g_units_ran = true;
}

// Answers by "m.k" (MIB number, object number); the rest go unanswered,
// g_timeout times out.
std::map<std::string, long> g_answers;
std::string g_timeout;
std::vector<std::string> g_asked;
bool g_nest = false;

int fake_query(const oid *name, size_t, long *value) {
    const std::string k = std::to_string(name[7]) + "." + std::to_string(name[9]);
    g_asked.push_back(k);
    if (g_nest) { // a request served while this query waits asks for a rebuild
        g_nest = false;
        do_misc();
    }
    if (k == g_timeout)
        return LOCAL_QUERY_TIMED_OUT;
    const auto it = g_answers.find(k);
    if (it == g_answers.end())
        return LOCAL_QUERY_NOT_ANSWERED;
    *value = it->second;
    return LOCAL_QUERY_ANSWERED;
}

std::vector<int> entry(int m) {
    const u_char *a = reinterpret_cast<const u_char *>(get_mib_array()) + 4 * m;
    return {a[0], a[1], a[2], a[3]};
}

// An entry holds presence, condition, major and minor revision; the header
// the largest condition of this rebuild (the agent's own 1 at least) and
// the count of MIBs. The first time-out ends a rebuild.
TEST(SysStatus, EntriesHeaderTimeOutAndTexts) {
    static const oid enterprise[] = {1, 3, 6, 1, 4, 1, 32473};
    set_local_query_function(fake_query);
    set_mib_status_enterprise(enterprise, OID_LENGTH(enterprise));
    g_answers = {{"11.3", 2}, {"11.1", 1}, {"11.2", 26}, {"18.3", 3}};
    g_nest = true;
    ASSERT_EQ(0, do_misc());
    EXPECT_EQ(24u, g_asked.size()) << "eight MIBs, three objects each, no nested rebuild";
    EXPECT_EQ(entry(0), (std::vector<int>{1, 3, 8, 0}));
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26}));
    EXPECT_EQ(entry(18), (std::vector<int>{1, 3, 0, 0}));
    g_asked.clear(), g_timeout = "3.3";
    do_misc();
    EXPECT_EQ(7u, g_asked.size()) << "nothing asked after the time-out";
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26})) << "entries kept";
    EXPECT_EQ(entry(0)[1], 1) << "only this rebuild's answers count";

    set_generic_data(std::string(300, 'g').c_str()); // cut, leaving room for the NUL
    EXPECT_EQ(std::string(254, 'g'), get_generic_data());
    set_local_query_function(nullptr);
    erase_sysstat_info();
}

// The deferred trap send, with the library's send call replaced by a
// recorder; what reaches a manager is checked end to end.
std::vector<std::string> g_sent; // "specific: last binding's text"

void record_trap(int, int specific, const oid *, int, netsnmp_variable_list *vars) {
    while (vars->next_variable)
        vars = vars->next_variable;
    g_sent.push_back(std::to_string(specific) + ": " +
                     std::string(reinterpret_cast<char *>(vars->val.string), vars->val_len));
}

// Fires the alarm armed by a send as the main loop would, 2 seconds on.
void fire(int id) {
    struct snmp_alarm *a = sa_find_next();
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->clientreg, static_cast<unsigned int>(id));
    EXPECT_EQ(a->t.tv_sec, 2);
    EXPECT_EQ(a->flags & SA_REPEAT, 0u) << "one-shot";
    trigger_immediate_trap_send_CB(a->clientreg, a->clientarg);
}

TEST(Traps, EachPendingSendOwnsItsTextAndIsReleased) {
    set_trap_sender(record_trap);
    set_trap_oids({enterprise_oid, OID_LENGTH(enterprise_oid), vorHoName_oid,
                   OID_LENGTH(vorHoName_oid), vorHoTrapFlags_oid, OID_LENGTH(vorHoTrapFlags_oid),
                   vorHoGenericData_oid, OID_LENGTH(vorHoGenericData_oid)});
    do_init();
    std::string *value = new std::string("disk replaced");
    const int first = trigger_immediate_trap_send(value->c_str(), TRAP_GENERIC_DATA_SET);
    const int second = trigger_immediate_trap_send("critical", TRAP_CRIT_DATA_SET);
    value->assign(40, 'X'); // the request's value is gone before the alarm fires
    delete value;
    fire(first);
    fire(second);
    EXPECT_EQ(g_sent, (std::vector<std::string>{"11003: disk replaced", "11014: critical"}));
    g_do_trap = 0; // -T: the send is released, nothing goes out
    fire(trigger_immediate_trap_send("quiet", TRAP_GENERIC_DATA_SET));
    EXPECT_EQ(g_sent.size(), 2u);
    set_trap_sender(nullptr);
    g_do_trap = 1;
    erase_sysstat_info();
    EXPECT_EQ(sa_find_next(), nullptr) << "every pending send was released";
}

} // namespace
