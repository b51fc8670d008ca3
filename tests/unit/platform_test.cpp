// SPDX-License-Identifier: Apache-2.0
// The platform layer: kernel statistics, the mount table, SMBIOS, the command
// stand-ins and how programs are started.
#include <csignal>
#include <fcntl.h>
#include <fnmatch.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblKstat_routines.h"
#include "platform/commands.h"
#include "platform/mnttab.h"
#include "platform/mount_probe.h"
#include "platform/notice.h"
#include "platform/offloop.h"
#include "platform/popen_stream.h"
#include "platform/smbios.h"
#include "platform/standins.h"
#include "unit_helpers.h"

namespace {

// Free memory is what the kernel counts as available for new work, MemFree
// only on kernels without that figure; a missing key reads all ones.
TEST(PlatformKstat, FreeMemoryAndMissingKeys) {
    ScratchDir root(true);
    root.write("proc/stat", "cpu0 1 2 3 4\n");
    const std::pair<const char *, uint64_t> cases[] = {
        {"MemFree: 500000 kB\nMemAvailable: 4000000 kB\n", 4000000},
        {"MemFree: 250000 kB\n", 250000}};
    for (const auto &[meminfo, kb] : cases) {
        root.write("proc/meminfo", meminfo);
        EXPECT_EQ(kb * 1024 / getpagesize(), getKstatVal64("unix", 0, "system_pages", "freemem"));
    }
    EXPECT_EQ(UINT64_MAX, getKstatVal64("unix", 0, "system_pages", "no_such_key"));
    EXPECT_EQ(UINT32_MAX, getKstatVal32("unix", 0, "system_pages", "no_such_key"));
}

// Every entry to the end as "special|mountp|fstype|options", or its error.
std::vector<std::string> scan(std::string text) {
    FILE *fp = fmemopen(text.data(), text.size(), "r");
    std::vector<std::string> got;
    struct mnttab m;
    for (int rc; (rc = solaris::getmntent(fp, &m)) != -1;)
        got.push_back(rc ? "error " + std::to_string(rc)
                         : std::string(m.mnt_special) + "|" + m.mnt_mountp + "|" + m.mnt_fstype +
                               "|" + m.mnt_mntopts);
    fclose(fp);
    return got;
}

// A 4096-byte mount point of blanks escapes to 16 kB, a device of the same
// kind doubles that: both fit; a longer line is skipped whole. Malformed
// lines and kernel interfaces do not end the scan.
TEST(PlatformMnttab, EscapesFieldCountsAndTheLongestLines) {
    std::string blanks;
    for (int i = 0; i < 4095; ++i)
        blanks += "\\040";
    const std::string b = "/" + std::string(4095, ' ');
    const auto error = [](int rc) { return "error " + std::to_string(rc); };
    EXPECT_EQ(scan("a b c d e f g\nonly three fields\nsysfs /sys sysfs rw 0 0\n"
                   "srv:/a\\011b /mnt/x\\134y\\04 nfs4 rw\n/dev/a /" +
                   blanks + " ext4 rw 0 0\n/" + blanks + " /" + blanks + " nfs rw 0 0\n/dev/b /" +
                   std::string(70 * 1024, 'x') + " ext4 rw 0 0\nlast /end xfs rw 0 0"),
              (std::vector<std::string>{error(MNT_TOOMANY), error(MNT_TOOFEW),
                                        "srv:/a\tb|/mnt/x\\y\\04|nfs4|rw",
                                        "/dev/a|" + b + "|ext4|rw", b + "|" + b + "|nfs|rw",
                                        error(MNT_TOOLONG), "last|/end|xfs|rw"}));
}

// One structure: header, formatted area (length taken from it), strings.
std::string structure(BYTE type, std::string formatted, std::string strings = "") {
    return std::string{static_cast<char>(type), static_cast<char>(4 + formatted.size()), 1, 0} +
           formatted + strings + std::string(strings.empty() ? 2 : 1, '\0');
}

const std::string kUuid = "\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f";
// Type 1, SMBIOS 2.1+: four string numbers, the UUID, the wake-up type.
const std::string kSystem = structure(1, std::string("\x01\x02\x00\x00", 4) + kUuid + "\x06",
                                      std::string("Maker\0Model", 11) + '\0');
const std::string kBios = structure(0, std::string(14, '\x01'), std::string("Vendor", 6) + '\0');

struct PlatformSmbios : ::testing::Test {
    ScratchDir root{true};
    void TearDown() override { platform::set_host_root(""), InitSMBIOS(); } // forget the table
    void load(const std::string &table) {
        root.write("sys/firmware/dmi/tables/DMI", table);
        InitSMBIOS();
    }
    static SMBIOS_SYSTEM_INFORMATION *system_info(WORD copy = 0) {
        PVOID rec = nullptr;
        return SmbGetRecordByType(1, copy, &rec) ? static_cast<SMBIOS_SYSTEM_INFORMATION *>(rec)
                                                 : nullptr;
    }
    static std::string uuid(SMBIOS_SYSTEM_INFORMATION *si) {
        return {reinterpret_cast<char *>(si->sUUID), 16};
    }
};

TEST_F(PlatformSmbios, CopiesOfATypeUpToTheEndStructureAndOldOnesPadded) {
    std::string second = kSystem;
    second[8] = '\x77';
    load(kBios + kSystem + second + structure(127, "") + kSystem);
    SMBIOS_SYSTEM_INFORMATION *si = system_info();
    ASSERT_NE(si, nullptr);
    EXPECT_EQ(uuid(si), kUuid);
    ASSERT_NE(system_info(1), nullptr);
    EXPECT_EQ(system_info(1)->sUUID[0], 0x77);
    EXPECT_EQ(system_info(2), nullptr);
    InitSMBIOS();
    EXPECT_EQ(system_info(), si) << "records stay put while the table is unchanged";
    // SMBIOS 2.0 type 1 ends before the UUID; what follows must not show
    // through where the UUID would be.
    load(structure(1, std::string("\x01\x02\x03\x04", 4)) + std::string(40, '\x55'));
    ASSERT_NE(si = system_info(), nullptr);
    EXPECT_EQ(si->Header.byLength, 8);
    EXPECT_EQ(uuid(si), std::string(16, '\0'));
}

TEST_F(PlatformSmbios, DamagedTablesEndTheWalkWithoutOverrunning) {
    const std::pair<const char *, std::string> cases[] = {
        {"truncated in the strings", kBios + kSystem.substr(0, kSystem.size() - 3)},
        {"length past the end", kBios + kSystem.substr(0, 20)},
        {"no string terminator", kBios + kSystem.substr(0, kSystem.size() - 2) + "x"},
        {"length below 4", kBios + std::string("\x02\x03\x00\x00\x00\x00", 6) + kSystem},
        {"header cut short", kBios + std::string("\x01\x19", 2)},
    };
    for (const auto &[what, table] : cases) {
        load(table);
        PVOID rec;
        EXPECT_EQ(SmbGetRecordByType(0, 0, &rec), 1) << what;
        EXPECT_EQ(system_info(), nullptr) << what;
    }
}

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
// then the year; psrinfo's state column. A processor without an "online"
// file (cpu0 on x86) cannot be taken off-line: it is on-line.
TEST(PlatformStandins, SvcsTimesAndPsrinfoStates) {
    ScratchDir root(true);
    for (const char *cpu : {"cpu0/topology/core_id", "cpu1/online", "cpu2/online"})
        root.write(std::string("sys/devices/system/cpu/") + cpu, cpu[3] == '1' ? "0\n" : "1\n");
    using platform::ProcessorState;
    const ProcessorState states[] = {ProcessorState::Online, ProcessorState::Offline,
                                     ProcessorState::Online, ProcessorState::Absent};
    for (int cpu = 0; cpu < 4; ++cpu)
        EXPECT_EQ(states[cpu], platform::processor_state(cpu)) << cpu;
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

// Programs get descriptors 0 to 2 only and the fixed environment, so the
// caller's PATH chooses nothing; nothing blocked and SIGPIPE at its default.
// An absolute program without shell syntax runs directly (the daemon is its
// parent), the rest through the shell.
TEST(PlatformPopen, OnlyStdioTheFixedEnvironmentAndUnblockedSignals) {
    ScratchDir dir;
    dir.command("cat", "fake\n");
    const std::string path = getenv("PATH");
    setenv("PATH", dir.path.c_str(), 1);
    const int stray = open("/dev/null", O_RDONLY); // not close-on-exec
    sigset_t term, saved;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, &saved);
    void (*saved_pipe)(int) = signal(SIGPIPE, SIG_IGN);
    const auto run = [](const char *command, int status = 0) {
        platform::PopenStream p(command);
        platform::CommandOutput out;
        EXPECT_TRUE(p.read_all(out)) << command;
        EXPECT_EQ(status, WEXITSTATUS(p.close())) << command;
        return out.text();
    };
    EXPECT_EQ("0\n1\n2\n", run("ls /proc/$$/fd; true"));
    EXPECT_EQ("PATH=/usr/sbin:/usr/bin:/sbin:/bin\nLC_ALL=C\n", run("/usr/bin/env"));
    run("/no/such/program", 127);
    const auto mask = [](const std::string &out, const char *field) {
        const size_t at = out.find(field);
        return at == std::string::npos ? ~0ull : std::stoull(out.substr(at + 8), nullptr, 16);
    };
    const std::string me = "PPid:\t" + std::to_string(getpid()) + "\n";
    for (const char *command : {"/bin/cat /proc/self/status", "cat /proc/self/status | cat"}) {
        const std::string out = run(command);
        EXPECT_EQ(command[0] == '/', out.find(me) != std::string::npos) << command;
        EXPECT_EQ(0u, mask(out, "SigBlk:") & (1u << (SIGTERM - 1))) << command;
        EXPECT_EQ(0u, mask(out, "SigIgn:") & (1u << (SIGPIPE - 1))) << command;
    }
    signal(SIGPIPE, saved_pipe);
    sigprocmask(SIG_SETMASK, &saved, nullptr);
    close(stray);
    setenv("PATH", path.c_str(), 1);
}

// A command's output as lines and as a stream for fgets parsers: the stream
// gives every byte (NULs too) from the start on each call; a line is cut at
// '\n' only, whatever its length.
TEST(PlatformPopen, OutputAsLinesAndAsAStream) {
    using namespace std::string_literals;
    const std::string long_line(100000, 'L');
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"\n", {""}},
        {"a\n\nb\n", {"a", "", "b"}},
        {"a\nno final newline", {"a", "no final newline"}},
        {"x\0y\n\0\nz"s, {"x\0y"s, "\0"s, "z"}},
        {long_line + "\nshort\n", {long_line, "short"}},
    };
    for (const auto &[text, lines] : cases) {
        platform::CommandOutput out(text);
        EXPECT_EQ(lines, out.lines()) << text.size();
        for (int pass = 0; pass < 2; ++pass) {
            FILE *fp = out.as_file();
            ASSERT_NE(nullptr, fp);
            std::string read(text.size() + 1, '-');
            read.resize(fread(&read[0], 1, read.size(), fp));
            EXPECT_EQ(text, read) << text.size() << " pass " << pass;
        }
    }
}

// Not running any more: gone, or a zombie for its new parent to reap.
bool ended(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    return !std::getline(stat, line) || line.substr(line.rfind(')') + 2, 1) == "Z";
}

size_t open_fds() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                             std::filesystem::directory_iterator()));
}

// Past its deadline a program is killed with all it started and reaped;
// no descriptor is left. The command is logged stuck once, however often it
// misses, and once more when a run ends in time again.
TEST(PlatformPopen, DeadlineKillsTheGroupReapsAndLogsOnceEachWay) {
    static std::vector<std::string> notices;
    platform::set_notice_sink([](int, const char *line) { notices.push_back(line); });
    ScratchDir dir;
    dir.command("psrinfo", "");
    dir.write("psrinfo", "#!/bin/sh\necho $$ >\"$0.pids\"\n[ -e \"$0.hangs\" ] || exit 0\n"
                         "sleep 60 & echo $! >>\"$0.pids\"\nwait\n");
    const size_t fds = open_fds();
    for (bool hangs : {true, true, false}) {
        if (hangs)
            dir.write("psrinfo.hangs", "");
        else
            std::filesystem::remove(dir.path + "/psrinfo.hangs");
        const int64_t start = platform::monotonic_ms();
        platform::PopenStream p(platform::psrinfo_path(), 100);
        platform::CommandOutput out;
        EXPECT_EQ(!hangs, p.read_all(out));
        p.close();
        EXPECT_LT(platform::monotonic_ms() - start, 1000);
        std::ifstream pids(dir.path + "/psrinfo.pids");
        for (pid_t pid; pids >> pid;) {
            for (int i = 0; i < 100 && !ended(pid); ++i)
                usleep(10000);
            EXPECT_TRUE(ended(pid)) << pid;
        }
        errno = 0;
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
        EXPECT_EQ(ECHILD, errno) << "reaped";
    }
    EXPECT_EQ(fds, open_fds());
    ASSERT_EQ(2u, notices.size());
    const std::string command = std::string("Command ") + platform::psrinfo_path();
    EXPECT_EQ(0u, notices[0].find(command + " did not finish within 100 ms")) << notices[0];
    EXPECT_EQ(command + " finishes in time again\n", notices[1]);
    platform::set_notice_sink(nullptr);
}

// The entries that may reach the SNMP library, or main-thread bookkeeping
// without a lock, abort when called from another thread, naming where;
// on the main thread they run, and nothing is checked before a thread is
// marked (a program that never attaches, as most tests here).
TEST(PlatformMainThread, EntriesAbortOffTheMainThreadOnly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform::MountProbe probe([](const char *, struct statvfs *) { return 0; },
                               platform::monotonic_ms, {});
    // (clang-format 14 and 19 lay out lambdas in a braced list differently.)
    // clang-format off
    const struct {
        const char *where;
        std::function<void()> call;
    } entries[] = {
        {"notice.cpp:[0-9]+: notice", [] { platform::notice(LOG_INFO, "a line\n"); }},
        {"offloop.cpp:[0-9]+: drain", [] { platform::offloop::drain(); }},
        {"mount_probe.cpp:[0-9]+: stat_all",
         [&] { probe.stat_all(std::vector<platform::MountId>{{"/", "dev", "fs"}}); }},
        {"popen_stream.cpp:[0-9]+: reap_killed_programs", [] { platform::reap_killed_programs(); }},
        {"popen_stream.cpp:[0-9]+: PopenStream", [] { platform::PopenStream p("/bin/true"); }},
    };
    // clang-format on
    for (const auto &e : entries) {
        SCOPED_TRACE(e.where);
        EXPECT_EXIT(
            {
                std::thread(e.call).join();
                exit(3);
            },
            testing::ExitedWithCode(3), "")
            << "not marked yet";
    }
    platform::mark_main_thread();
    for (const auto &e : entries) {
        SCOPED_TRACE(e.where);
        EXPECT_DEATH(std::thread(e.call).join(),
                     std::string(e.where) + " called off the main thread");
        e.call();
    }
}

} // namespace
