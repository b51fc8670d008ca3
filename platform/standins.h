// SPDX-License-Identifier: Apache-2.0
// The Solaris commands the providers run, rebuilt from Linux sources. Each
// program in cmd/ is a thin main around one run_* function here, so the
// formats can be tested against fixture trees (see host_paths.h).
#pragma once

#include <cstdint>
#include <ctime>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace platform {

// svcs: the state line of svc:/network/telnet:default.

// True when a telnet service is up on this host: a TCP listener on port 23
// (asked of the kernel over netlink, else read from /proc/net/tcp and tcp6),
// or an enabled telnet line in /etc/inetd.conf with an inetd running.
bool telnet_online();
enum class ListenerAnswer { Yes, No, Unknown };
// Whether a TCP socket (IPv4 or IPv6) listens on the local port, asked of
// the kernel's socket diagnostics; Unknown when the kernel refuses.
ListenerAnswer tcp_listener_on_port(uint16_t port);
// True when the /proc/net/tcp-format table holds a listener on local port 23.
bool has_telnet_listener(std::istream &tcp_table);
// True when inetd.conf holds an uncommented telnet service line.
bool inetd_conf_enables_telnet(std::istream &inetd_conf);
// svcs' STIME column: HH:MM:SS within a day of now, else "Mon_dd".
std::string svcs_stime(time_t when, time_t now);
int run_svcs(int argc, char **argv, std::ostream &out, std::ostream &err);

// psrinfo: processor states from /sys/devices/system/cpu.

enum class ProcessorState { Online, Offline, Absent };
ProcessorState processor_state(int cpu);
// The processors that exist, ascending.
std::vector<int> processor_ids();
// "N\ton-line   since MM/DD/YYYY HH:MM:SS" (local time), without newline.
std::string psrinfo_line(int cpu, ProcessorState state, time_t since);
int run_psrinfo(int argc, char **argv, std::ostream &out, std::ostream &err);

// pkginfo -x: installed packages of the dpkg database, two lines each.
std::string pkginfo_listing(std::istream &dpkg_status);
int run_pkginfo(int argc, char **argv, std::ostream &out, std::ostream &err);

// modinfo -w: loaded kernel modules from /proc/modules.
std::string modinfo_listing(std::istream &proc_modules);
int run_modinfo(int argc, char **argv, std::ostream &out, std::ostream &err);

} // namespace platform
