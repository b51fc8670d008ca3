// SPDX-License-Identifier: Apache-2.0
// libFuzzer targets for every parser of outside text, one per build of this
// file (FUZZ_<target>, see CMakeLists.txt). Any input must parse without a
// sanitizer report, and what comes out must keep the parser's promises.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "contrib/nagios/check_verdict.h"
#include "interface/KyOrblHostCpu_interface.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/vorHoInfo.h"
#include "mib-extns/vorHoSysStatusGroup.h"
#include "mib-extns/vorMeMibGroup.h"
#include "platform/host_files.h"
#include "platform/host_paths.h"
#include "platform/mnttab.h"
#include "platform/smbios.h"
#include "platform/standins.h"

namespace {
// Keeps the reads that prove a bound from being optimised away.
[[maybe_unused]] volatile size_t s_sink;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
#if defined(FUZZ_fuzz_mnttab)
    // The mount table reader: every entry it returns is NUL-terminated fields.
    FILE *fp = size ? fmemopen(const_cast<unsigned char *>(data), size, "r") : nullptr;
    struct mnttab m;
    for (int rc; fp && (rc = solaris::getmntent(fp, &m)) != -1;)
        if (rc == 0)
            s_sink = strlen(m.mnt_special) + strlen(m.mnt_mountp) + strlen(m.mnt_fstype) +
                     strlen(m.mnt_mntopts);
    if (fp)
        fclose(fp);
#elif defined(FUZZ_fuzz_proc_text)
    // /proc/stat's processor and boot-time lines, /proc/meminfo, processor lists.
    for (const platform::CpuTicks &t : platform::parse_stat_cpus(text))
        if (t.cpu < 0)
            __builtin_trap(); // a malformed line is left out, not half-read
    time_t btime;
    platform::parse_stat_btime(text, btime);
    uint64_t kb;
    for (const char *key : {"MemTotal", "MemAvailable", "MemFree", "SwapTotal", "SwapFree"})
        platform::meminfo_kb(text, key, kb);
    std::vector<int> cpus;
    if (platform::parse_cpu_list(text, cpus))
        for (size_t i = 1; i < cpus.size(); ++i)
            if (cpus[i] <= cpus[i - 1])
                __builtin_trap(); // promised ascending
#elif defined(FUZZ_fuzz_standin_listings)
    // What the stand-ins parse (dpkg status, /proc/modules, /proc/net/tcp,
    // inetd.conf) and what the providers parse of their output.
    for (void (*parse)(std::istream &) :
         {+[](std::istream &in) { (void)platform::pkginfo_listing(in); },
          +[](std::istream &in) { (void)platform::modinfo_listing(in); },
          +[](std::istream &in) { (void)platform::has_telnet_listener(in); },
          +[](std::istream &in) { (void)platform::inetd_conf_enables_telnet(in); }}) {
        std::istringstream in(text);
        parse(in);
    }
    if (FILE *fp = size ? fmemopen(const_cast<unsigned char *>(data), size, "r") : nullptr) {
        unsigned char online[64] = {};
        mark_online_processors(fp, online, 64);
        rewind(fp);
        read_pkg_listing(fp, [](int, const char *) { return 1; });
        cleanup_swver_list();
        fclose(fp);
    }
#elif defined(FUZZ_fuzz_smbios)
    // SMBIOS tables of any shape: every record handed out is readable for the
    // 256 bytes a caller may look at (a System Information UUID sits at 8).
    static const std::string root = [] {
        char dir[] = "/tmp/fuzz-smbios.XXXXXX";
        if (!mkdtemp(dir))
            abort();
        std::filesystem::create_directories(std::string(dir) + "/sys/firmware/dmi/tables");
        platform::set_host_root(dir);
        static std::string s_root = dir;
        atexit([] { std::filesystem::remove_all(s_root); });
        return s_root;
    }();
    FILE *f = fopen((root + "/sys/firmware/dmi/tables/DMI").c_str(), "wb");
    if (!f)
        abort();
    fwrite(data, 1, size, f);
    fclose(f);
    if (InitSMBIOS())
        for (BYTE type : {0, 1, 2, 127})
            for (WORD copy = 0; copy < 3; ++copy) {
                PVOID record = nullptr;
                if (SmbGetRecordByType(type, copy, &record) && record)
                    for (int i = 0; i < 256; ++i)
                        s_sink = s_sink + static_cast<const BYTE *>(record)[i];
            }
#elif defined(FUZZ_fuzz_persistent_tokens)
    // The persistent file's token parsers, fed as the library feeds them (a
    // token, then the rest of the line, here with any line ends in it);
    // every value kept stays in its field and holds no line end, so that
    // the next store writes it back as one line.
    static const bool ready = (do_init(), true); // the status record, no query
    static const char *const tokens[] = {POLL_FREQ_TOKEN, HOST_GUID_TOKEN, SYS_ROLE_TOKEN,
                                         SYS_ROLE_DETAIL_TOKEN};
    if (!ready || size == 0)
        return 0;
    std::string value = text.substr(1, strnlen(text.c_str() + 1, size - 1)); // a C string
    load_Orbl_Host_OsComm_tokens(tokens[data[0] % 4], &value[0]);
    load_Orbl_Host_sysstatus_tokens(tokens[data[0] % 4], &value[0]);
    load_Orbl_Host_tokens(tokens[data[0] % 4], &value[0]);
    const std::string guid(getGuid(), strnlen(getGuid(), HO_GUID_SIZE));
    for (const std::string &kept :
         {std::string(get_system_role()), std::string(get_system_role_detail()), guid})
        if (kept.find_first_of("\r\n") != std::string::npos)
            __builtin_trap();
    if (strlen(get_system_role()) > SYS_ROLE_MAX_LEN ||
        strlen(get_system_role_detail()) > SYS_ROLE_DETAIL_MAX_LEN || g_osCommonPollFrequency < 0)
        __builtin_trap();
#elif defined(FUZZ_fuzz_check_plugin)
    // The check plugin's ranges (operators' text) and its verdicts on what an
    // agent answers: the text as a range, a status array, and as table rows
    // (one file system description or package name a line). The status line
    // stays one line whose text part holds no "|".
    std::string error;
    if (auto r = check::Range::parse(text, &error))
        s_sink = r->alert(static_cast<double>(size));
    std::vector<check::FsRow> fs;
    std::vector<check::SwRow> sw;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        fs.push_back({line, static_cast<long>(line.size()) - 4, static_cast<long>(line.size()) / 2,
                      static_cast<long>(line.size()) % 103});
        sw.push_back({line, static_cast<long>(line.size() % 4)});
    }
    const check::Thresholds t{check::Range::parse("80", &error),
                              check::Range::parse("@90:", &error)};
    for (const check::Result &r : {check::judge_fs(fs, {}, t), check::judge_fs(fs, {text}, t),
                                   check::judge_software(sw, {}), check::judge_status(text),
                                   check::judge_memory(long(size), long(size % 7) - 3, 0, 0, t)}) {
        const std::string line = r.line("fs");
        const size_t bar = line.find(" | ");
        if (line.find('\n') != std::string::npos ||
            line.substr(0, bar).find('|') != std::string::npos)
            __builtin_trap();
    }
#else
#error "name the target: -DFUZZ_<target>"
#endif
    return 0;
}
