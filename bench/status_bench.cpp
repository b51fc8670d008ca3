// SPDX-License-Identifier: Apache-2.0
// What the MIB status array costs: the time one rebuild (24 local queries
// through the master, this daemon's own MIB answered over AgentX) blocks
// its caller, beside the same 24 queries of an object the master answers
// itself; and the GET rate of vorHoWebMgmtPort.0 (every GET rebuilds the
// array) against vorHoCodeServer.0 and the master's sysUpTime.0.
//
// Usage: status_bench [rebuilds] [requests-per-object] (agent at
// 127.0.0.1:161, community "meadow", a sibling MIB served by the master
// through a pass script); run by bench/run-all.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/KyOrblNetSnmp_helpers.h"
#include "agent_client.h"
#include "interface/net_snmp.h"
#include "mib-extns/object_map.h"

using Clock = std::chrono::steady_clock;

static double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Figures {
    double min, median, max;
};

static Figures summarise(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return {v.front(), v[v.size() / 2], v.back()};
}

// 24 queries of the master's own sysUpTime.0, each in a session of its own
// like a rebuild's; -1 when one is not answered.
static double master_only_round(void) {
    auto start = Clock::now();
    for (int i = 0; i < 24; ++i) {
        long value;
        if (snmp_check_oid_exists(sysUpTime_oid, OID_LENGTH(sysUpTime_oid), &value) !=
            LOCAL_QUERY_ANSWERED) {
            return -1;
        }
    }
    return ms_since(start);
}

int main(int argc, char **argv) {
    const int rebuilds = argc > 1 ? atoi(argv[1]) : 200;
    const int count = argc > 2 ? atoi(argv[2]) : 500;
    if (rebuilds <= 0 || count <= 0) {
        fprintf(stderr, "usage: %s [rebuilds] [requests-per-object]\n", argv[0]);
        return 2;
    }
    setenv("MIBS", "", 1);
    init_snmp("status_bench");
    set_mib_status_enterprise(enterprise_oid, OID_LENGTH(enterprise_oid));
    set_local_query_community("meadow");

    std::vector<double> ours, master;
    do_misc(); // warm-up
    for (int i = 0; i < rebuilds; ++i) {
        auto start = Clock::now();
        do_misc();
        ours.push_back(ms_since(start));
        const double m = master_only_round();
        if (m < 0) {
            fprintf(stderr, "a local query of sysUpTime.0 failed: is the master running?\n");
            return 1;
        }
        master.push_back(m);
    }
    const u_char *a = reinterpret_cast<const u_char *>(get_mib_array());
    int answering = 0;
    for (int m = 1; m < 64; ++m) {
        answering += a[4 * m];
    }
    if (a[44] != 1) {
        fprintf(stderr, "entry 11 did not fill: is temhostd attached to the master?\n");
        return 1;
    }

    netsnmp_session *ss = open_agent_session();
    if (!ss) {
        return 1;
    }
    get_rate(ss, vorHoCodeServer_oid, OID_LENGTH(vorHoCodeServer_oid), 50);
    const double master_rate = get_rate(ss, sysUpTime_oid, OID_LENGTH(sysUpTime_oid), count);
    const double code_rate =
        get_rate(ss, vorHoCodeServer_oid, OID_LENGTH(vorHoCodeServer_oid), count);
    const double port_rate =
        get_rate(ss, vorHoWebMgmtPort_oid, OID_LENGTH(vorHoWebMgmtPort_oid), count);
    snmp_close(ss);
    if (master_rate < 0 || code_rate < 0 || port_rate < 0) {
        fprintf(stderr, "a GET failed: is the master running with temhostd attached?\n");
        return 1;
    }

    const Figures o = summarise(ours), m = summarise(master);
    printf("MIBs answering in the status array: %d (entry 11 included)\n", answering);
    printf("one rebuild, 24 queries (ms), %d runs:   min %6.2f  median %6.2f  max %6.2f"
           "  (goal: at most 50)\n",
           rebuilds, o.min, o.median, o.max);
    printf("24 queries of the master's sysUpTime.0 (ms): min %6.2f  median %6.2f  max %6.2f\n",
           m.min, m.median, m.max);
    printf("GET rate, %d requests per object:\n", count);
    printf("  master's own sysUpTime.0:          %8.0f GET/s\n", master_rate);
    printf("  vorHoCodeServer.0 over AgentX:     %8.0f GET/s\n", code_rate);
    printf("  vorHoWebMgmtPort.0 (rebuilds):     %8.0f GET/s\n", port_rate);
    printf("  rebuild cost inside the daemon:    %8.2f ms per GET\n",
           1000.0 / port_rate - 1000.0 / code_rate);
    return 0;
}
