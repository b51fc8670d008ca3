// SPDX-License-Identifier: Apache-2.0
#include "platform/standins.h"

#include "platform/host_files.h"
#include "platform/host_paths.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace platform {

namespace {

const char kTelnetFmri[] = "svc:/network/telnet:default";

bool is_directory(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool equals_nocase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return tolower(static_cast<unsigned char>(x)) ==
                      tolower(static_cast<unsigned char>(y));
           });
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && isspace(static_cast<unsigned char>(s.front()))) {
        s.remove_prefix(1);
    }
    while (!s.empty() && isspace(static_cast<unsigned char>(s.back()))) {
        s.remove_suffix(1);
    }
    return s;
}

// xinetd is left out: it does not read inetd.conf.
bool inetd_running() {
    std::string proc = host_path("/proc");
    DIR *d = opendir(proc.c_str());
    if (!d) {
        return false;
    }
    bool found = false;
    while (struct dirent *de = readdir(d)) {
        uint64_t pid;
        if (!parse_u64(de->d_name, pid)) {
            continue;
        }
        std::ifstream comm(proc + "/" + de->d_name + "/comm");
        std::string name;
        if (std::getline(comm, name) && (name == "inetd" || name == "inetutils-inetd")) {
            found = true;
            break;
        }
    }
    closedir(d);
    return found;
}

std::string format_time(const char *fmt, time_t when) {
    struct tm tm;
    char buf[64];
    if (!localtime_r(&when, &tm) || strftime(buf, sizeof(buf), fmt, &tm) == 0) {
        return "-";
    }
    return buf;
}

// The provider reads a first listing line 255 characters at a time and a
// second one 79 at a time; anything longer would spill into a read of its
// own and be taken for another package's line. Lines are cut to fit.
constexpr size_t kPkgFirstLineMax = 254;
constexpr size_t kPkgSecondLineMax = 78;
constexpr int kPkgNameColumn = 14;

struct Package {
    std::string name, status, arch, version, synopsis;
};

bool is_installed(const std::string &status) {
    std::vector<std::string_view> f = split_fields(status);
    return f.size() == 3 && f[0] == "install" && f[1] == "ok" && f[2] == "installed";
}

void emit_package(const Package &p, std::string &out) {
    if (p.name.empty() || !is_installed(p.status)) {
        return;
    }
    std::string first = p.name;
    first.append(first.size() < kPkgNameColumn ? kPkgNameColumn - first.size() : 1, ' ');
    first += p.synopsis;
    if (first.size() > kPkgFirstLineMax) {
        first.resize(kPkgFirstLineMax);
    }
    std::string second(kPkgNameColumn, ' ');
    second += "(" + (p.arch.empty() ? std::string("unknown") : p.arch) + ") " + p.version;
    if (second.size() > kPkgSecondLineMax) {
        second.resize(kPkgSecondLineMax);
    }
    out += first + "\n" + second + "\n";
}

} // namespace

bool has_telnet_listener(std::istream &tcp_table) {
    std::string line;
    while (std::getline(tcp_table, line)) {
        // "  0: 00000000:0017 00000000:0000 0A ..." (tcp6: 32 address digits)
        std::vector<std::string_view> f = split_fields(line);
        if (f.size() < 4) {
            continue;
        }
        std::string_view local = f[1];
        size_t colon = local.find(':');
        if (colon == std::string_view::npos || (colon != 8 && colon != 32)) {
            continue;
        }
        uint64_t addr_part, port, state;
        std::string_view addr = local.substr(0, colon), port_hex = local.substr(colon + 1);
        bool addr_ok = true;
        for (size_t i = 0; i < addr.size() && addr_ok; i += 8) {
            addr_ok = parse_u64(addr.substr(i, 8), addr_part, 16);
        }
        if (!addr_ok || port_hex.size() != 4 || !parse_u64(port_hex, port, 16) ||
            f[3].size() != 2 || !parse_u64(f[3], state, 16)) {
            continue;
        }
        if (port == 23 && state == 0x0A) { // TCP_LISTEN
            return true;
        }
    }
    return false;
}

bool inetd_conf_enables_telnet(std::istream &inetd_conf) {
    std::string line;
    while (std::getline(inetd_conf, line)) {
        std::vector<std::string_view> f = split_fields(line);
        if (f.size() < 6 || f[0].front() == '#') {
            continue;
        }
        // The service may be bound to one address: "192.0.2.1:telnet".
        std::string_view service = f[0];
        size_t colon = service.rfind(':');
        if (colon != std::string_view::npos) {
            service.remove_prefix(colon + 1);
        }
        if (service == "telnet" || service == "23") {
            return true;
        }
    }
    return false;
}

ListenerAnswer tcp_listener_on_port(uint16_t port) {
    // Only listening sockets are asked for, so the kernel walks its
    // listening table alone: the cost does not grow with the connections.
    int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (fd < 0) {
        return ListenerAnswer::Unknown;
    }
    struct timeval limit = {1, 0}; // never hang the caller on a silent kernel
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    ListenerAnswer answer = ListenerAnswer::No;
    for (uint8_t family : {AF_INET, AF_INET6}) {
        struct {
            struct nlmsghdr nlh;
            struct inet_diag_req_v2 req;
        } msg;
        memset(&msg, 0, sizeof(msg));
        msg.nlh.nlmsg_len = sizeof(msg);
        msg.nlh.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        msg.nlh.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        msg.req.sdiag_family = family;
        msg.req.sdiag_protocol = IPPROTO_TCP;
        msg.req.idiag_states = 1u << TCP_LISTEN;
        if (send(fd, &msg, sizeof(msg), 0) != static_cast<ssize_t>(sizeof(msg))) {
            answer = ListenerAnswer::Unknown;
            break;
        }
        bool done = false;
        alignas(struct nlmsghdr) char buf[16384];
        while (!done && answer != ListenerAnswer::Unknown) {
            ssize_t len = recv(fd, buf, sizeof(buf), 0);
            if (len <= 0) {
                answer = ListenerAnswer::Unknown;
                break;
            }
            for (auto *h = reinterpret_cast<struct nlmsghdr *>(buf); NLMSG_OK(h, len);
                 h = NLMSG_NEXT(h, len)) {
                if (h->nlmsg_type == NLMSG_DONE) {
                    done = true;
                    break;
                }
                if (h->nlmsg_type == NLMSG_ERROR) {
                    answer = ListenerAnswer::Unknown;
                    break;
                }
                if (h->nlmsg_len < NLMSG_LENGTH(sizeof(struct inet_diag_msg))) {
                    continue;
                }
                const auto *diag = static_cast<const struct inet_diag_msg *>(NLMSG_DATA(h));
                if (ntohs(diag->id.idiag_sport) == port) {
                    answer = ListenerAnswer::Yes;
                }
            }
        }
        if (answer != ListenerAnswer::No) {
            break;
        }
    }
    close(fd);
    return answer;
}

bool telnet_online() {
    // On the live host the kernel is asked directly; a fixture tree (or a
    // kernel that refuses the query) is read through /proc/net instead.
    ListenerAnswer listener =
        host_root().empty() ? tcp_listener_on_port(23) : ListenerAnswer::Unknown;
    if (listener == ListenerAnswer::Unknown) {
        for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
            std::ifstream in(host_path(table));
            if (in && has_telnet_listener(in)) {
                listener = ListenerAnswer::Yes;
                break;
            }
        }
    }
    if (listener == ListenerAnswer::Yes) {
        return true;
    }
    // A socket-activated or inetd-run telnet is a listener too; this only
    // catches an enabled inetd line whose inetd has not bound the port.
    std::ifstream conf(host_path("/etc/inetd.conf"));
    return conf && inetd_conf_enables_telnet(conf) && inetd_running();
}

std::string svcs_stime(time_t when, time_t now) {
    if (now - when < 24 * 60 * 60) {
        return format_time("%H:%M:%S", when);
    }
    if (now - when < 365 * 24 * 60 * 60) {
        return format_time("%b_%d", when);
    }
    return format_time("%Y", when);
}

int run_svcs(int, char **, std::ostream &out, std::ostream &) {
    // Whatever the arguments, the one service we stand in for is listed:
    // callers filter the listing with grep. Its state time is the boot.
    char line[256];
    snprintf(line, sizeof(line), "%-14s %-8s %s\n", telnet_online() ? "online" : "disabled",
             svcs_stime(host_boot_time(), time(nullptr)).c_str(), kTelnetFmri);
    out << "STATE          STIME    FMRI\n" << line;
    return 0;
}

ProcessorState processor_state(int cpu) {
    std::string dir = "/sys/devices/system/cpu/cpu" + std::to_string(cpu);
    if (cpu < 0 || !is_directory(host_path(dir.c_str()))) {
        return ProcessorState::Absent;
    }
    // A processor that cannot be taken off-line (often cpu0) has no
    // "online" file at all.
    std::string online;
    if (!read_host_text((dir + "/online").c_str(), online, 64)) {
        return ProcessorState::Online;
    }
    std::string_view v = trim(online);
    return !v.empty() && v.front() == '0' ? ProcessorState::Offline : ProcessorState::Online;
}

std::vector<int> processor_ids() {
    std::vector<int> ids;
    std::string base = host_path("/sys/devices/system/cpu");
    DIR *d = opendir(base.c_str());
    if (!d) {
        return ids;
    }
    while (struct dirent *de = readdir(d)) {
        uint64_t n;
        if (strncmp(de->d_name, "cpu", 3) == 0 && parse_u64(de->d_name + 3, n) && n <= INT_MAX &&
            is_directory(base + "/" + de->d_name)) {
            ids.push_back(static_cast<int>(n));
        }
    }
    closedir(d);
    std::sort(ids.begin(), ids.end());
    return ids;
}

std::string psrinfo_line(int cpu, ProcessorState state, time_t since) {
    char line[128];
    snprintf(line, sizeof(line), "%d\t%-9s since %s", cpu,
             state == ProcessorState::Offline ? "off-line" : "on-line",
             format_time("%m/%d/%Y %H:%M:%S", since).c_str());
    return line;
}

int run_psrinfo(int argc, char **argv, std::ostream &out, std::ostream &err) {
    std::vector<int> cpus;
    for (int i = 1; i < argc; ++i) {
        uint64_t n;
        if (!parse_u64(argv[i], n) || n > INT_MAX) {
            err << "usage: psrinfo [processor_id ...]\n";
            return 2;
        }
        cpus.push_back(static_cast<int>(n));
    }
    bool all = cpus.empty();
    if (all) {
        cpus = processor_ids();
        if (cpus.empty()) {
            err << "psrinfo: no processors found\n";
            return 1;
        }
    }
    // The state time is the boot: Linux does not record when a processor
    // last changed state.
    time_t since = host_boot_time();
    int rc = 0;
    for (int cpu : cpus) {
        ProcessorState st = processor_state(cpu);
        if (st == ProcessorState::Absent) {
            err << "psrinfo: processor " << cpu << " does not exist\n";
            rc = 1;
            continue;
        }
        out << psrinfo_line(cpu, st, since) << "\n";
    }
    return rc;
}

std::string pkginfo_listing(std::istream &dpkg_status) {
    std::string out, line;
    Package pkg;
    while (std::getline(dpkg_status, line)) {
        std::string_view l(line);
        if (trim(l).empty()) {
            emit_package(pkg, out);
            pkg = Package();
            continue;
        }
        if (l.front() == ' ' || l.front() == '\t') {
            continue; // continuation of a multi-line field
        }
        size_t colon = l.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        std::string_view name = l.substr(0, colon), value = trim(l.substr(colon + 1));
        if (equals_nocase(name, "Package")) {
            pkg.name.assign(value);
        } else if (equals_nocase(name, "Status")) {
            pkg.status.assign(value);
        } else if (equals_nocase(name, "Architecture")) {
            pkg.arch.assign(value);
        } else if (equals_nocase(name, "Version")) {
            pkg.version.assign(value);
        } else if (equals_nocase(name, "Description")) {
            pkg.synopsis.assign(value);
        }
    }
    emit_package(pkg, out);
    return out;
}

int run_pkginfo(int argc, char **argv, std::ostream &out, std::ostream &err) {
    if (argc != 2 || strcmp(argv[1], "-x") != 0) {
        err << "usage: pkginfo -x\n";
        return 2;
    }
    std::string path = host_path("/var/lib/dpkg/status");
    std::ifstream in(path);
    if (!in) {
        err << "pkginfo: ERROR: cannot open " << path << ": " << strerror(errno) << "\n";
        return 1;
    }
    out << pkginfo_listing(in);
    return 0;
}

std::string modinfo_listing(std::istream &proc_modules) {
    std::string out = " Id Loadaddr   Size Info Rev Module Name\n", line;
    int id = 0;
    while (std::getline(proc_modules, line)) {
        // "ext4 1003520 1 - Live 0xffffffffc0a00000 (E)"
        std::vector<std::string_view> f = split_fields(line);
        uint64_t size, addr;
        if (f.size() < 6 || f[0].size() > 255 || !parse_u64(f[1], size) ||
            f[5].substr(0, 2) != "0x" || !parse_u64(f[5].substr(2), addr, 16)) {
            continue;
        }
        std::string name(f[0]);
        char buf[600];
        snprintf(buf, sizeof(buf), "%3d %8llx %6llx %4s %3d  %s (%s)\n", ++id,
                 static_cast<unsigned long long>(addr), static_cast<unsigned long long>(size), "-",
                 1, name.c_str(), name.c_str());
        out += buf;
    }
    return out;
}

int run_modinfo(int argc, char **argv, std::ostream &out, std::ostream &err) {
    if (argc > 2 || (argc == 2 && strcmp(argv[1], "-w") != 0)) {
        err << "usage: modinfo [-w]\n";
        return 2;
    }
    std::string path = host_path("/proc/modules");
    std::ifstream in(path);
    if (!in && errno != ENOENT) {
        err << "modinfo: cannot open " << path << ": " << strerror(errno) << "\n";
        return 1;
    }
    // A kernel built without loadable modules has no /proc/modules: an
    // empty list.
    std::istringstream none;
    out << modinfo_listing(in ? static_cast<std::istream &>(in) : none);
    return 0;
}

} // namespace platform
