// SPDX-License-Identifier: Apache-2.0
// Latency of a GET of vorHoTelnet.0 (a shell pipeline with the svcs
// stand-in at every GET) against vorHoOsType.0 (a stored value), both
// served by temhostd through the master, asked alternately from one client
// session so that both see the same load on the host.
// Prints "telnet_median_ms ostype_median_ms telnet_p90_ms ostype_p90_ms".
//
// Usage: telnet_latency_bench [requests-per-object] (agent at
// 127.0.0.1:161, community "meadow"); run by bench/run-all.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "agent_client.h"
#include "mib-extns/object_map.h"

using Clock = std::chrono::steady_clock;

// Milliseconds one GET took, or a negative number when it failed.
static double get_ms(netsnmp_session *ss, const oid *name, size_t len) {
    const auto start = Clock::now();
    const bool ok = get_answered(ss, name, len);
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    return ok ? ms : -1;
}

static double quantile(std::vector<double> v, double q) {
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(q * static_cast<double>(v.size() - 1))];
}

int main(int argc, char **argv) {
    const int count = argc > 1 ? atoi(argv[1]) : 200;
    if (count <= 0) {
        fprintf(stderr, "usage: %s [requests-per-object]\n", argv[0]);
        return 2;
    }
    setenv("MIBS", "", 1);
    init_snmp("telnet_latency_bench");
    netsnmp_session *ss = open_agent_session();
    if (!ss) {
        return 1;
    }
    std::vector<double> telnet, ostype;
    for (int i = -10; i < count; ++i) { // the first ten pairs warm up
        const double t = get_ms(ss, vorHoTelnet_oid, OID_LENGTH(vorHoTelnet_oid));
        const double o = get_ms(ss, vorHoOsType_oid, OID_LENGTH(vorHoOsType_oid));
        if (t < 0 || o < 0) {
            fprintf(stderr, "a GET failed: is the master running with temhostd attached?\n");
            snmp_close(ss);
            return 1;
        }
        if (i >= 0) {
            telnet.push_back(t);
            ostype.push_back(o);
        }
    }
    snmp_close(ss);
    printf("%.3f %.3f %.3f %.3f\n", quantile(telnet, 0.5), quantile(ostype, 0.5),
           quantile(telnet, 0.9), quantile(ostype, 0.9));
    return 0;
}
