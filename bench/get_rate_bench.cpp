// SPDX-License-Identifier: Apache-2.0
// GET requests per second through the master agent, from one client
// session: an object served by temhostd over AgentX against the master's
// own sysUpTime.0, in alternating rounds. Prints the best round's rates
// and their ratio.
//
// Usage: get_rate_bench [requests-per-object] (agent at 127.0.0.1:161,
// community "meadow"); run by bench/run-all in a private host.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "agent_client.h"
#include "mib-extns/object_map.h"

int main(int argc, char **argv) {
    const int count = argc > 1 ? atoi(argv[1]) : 5000;
    if (count < 10) {
        fprintf(stderr, "usage: %s [requests-per-object]\n", argv[0]);
        return 2;
    }
    setenv("MIBS", "", 1);
    init_snmp("get_rate_bench");
    netsnmp_session *ss = open_agent_session();
    if (!ss) {
        return 1;
    }
    // Warm both paths up, then measure them in alternating rounds, the best
    // round of each counting: on a shared machine the load moves.
    get_rate(ss, sysUpTime_oid, OID_LENGTH(sysUpTime_oid), 200);
    get_rate(ss, vorMeMibRevMajor_oid, OID_LENGTH(vorMeMibRevMajor_oid), 200);
    const int rounds = 10;
    double master = 0, ours = 0;
    bool failed = false;
    for (int i = 0; i < rounds; ++i) {
        const double m = get_rate(ss, sysUpTime_oid, OID_LENGTH(sysUpTime_oid), count / rounds);
        const double o =
            get_rate(ss, vorMeMibRevMajor_oid, OID_LENGTH(vorMeMibRevMajor_oid), count / rounds);
        failed = failed || m < 0 || o < 0;
        master = std::max(master, m);
        ours = std::max(ours, o);
    }
    snmp_close(ss);
    if (failed) {
        fprintf(stderr, "a GET failed: is the master running with temhostd attached?\n");
        return 1;
    }
    printf("requests per object:            %d\n", count);
    printf("master's own sysUpTime.0:       %8.0f GET/s\n", master);
    printf("vorMeMibRevMajor.0 over AgentX: %8.0f GET/s\n", ours);
    printf("ratio (ours / master):          %8.2f  (goal: at least 0.50)\n", ours / master);
    return 0;
}
