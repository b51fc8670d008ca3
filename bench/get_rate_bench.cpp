// GET requests per second through the master agent, from one client
// session: an object served by temhostd over AgentX against the master's
// own sysUpTime.0. Prints both rates and their ratio.
//
// Usage: get_rate_bench [requests-per-object] (agent at 127.0.0.1:161,
// community "meadow"); run by bench/run-all in a private host.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "interface/net_snmp.h"
#include "mib-extns/object_map.h"

static const oid sysUpTime_oid[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};

// Returns requests per second, or a negative number when a GET failed.
static double rate(netsnmp_session *ss, const oid *name, size_t len, int count) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
        snmp_add_null_var(pdu, name, len);
        netsnmp_pdu *response = nullptr;
        int status = snmp_synch_response(ss, pdu, &response);
        bool ok = status == STAT_SUCCESS && response && response->errstat == SNMP_ERR_NOERROR &&
                  response->variables && response->variables->type != SNMP_NOSUCHOBJECT;
        if (response) {
            snmp_free_pdu(response);
        }
        if (!ok) {
            return -1;
        }
    }
    std::chrono::duration<double> secs = std::chrono::steady_clock::now() - start;
    return count / secs.count();
}

int main(int argc, char **argv) {
    int count = argc > 1 ? atoi(argv[1]) : 5000;
    if (count <= 0) {
        fprintf(stderr, "usage: %s [requests-per-object]\n", argv[0]);
        return 2;
    }
    setenv("MIBS", "", 1);
    init_snmp("get_rate_bench");
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_VERSION_2c;
    session.peername = const_cast<char *>("127.0.0.1");
    session.community = reinterpret_cast<u_char *>(const_cast<char *>("meadow"));
    session.community_len = 6;
    netsnmp_session *ss = snmp_open(&session);
    if (!ss) {
        snmp_perror("snmp_open");
        return 1;
    }
    // Warm both paths up, then measure them alternately in the same run.
    rate(ss, sysUpTime_oid, OID_LENGTH(sysUpTime_oid), 200);
    rate(ss, vorMeMibRevMajor_oid, OID_LENGTH(vorMeMibRevMajor_oid), 200);
    double master = rate(ss, sysUpTime_oid, OID_LENGTH(sysUpTime_oid), count);
    double ours = rate(ss, vorMeMibRevMajor_oid, OID_LENGTH(vorMeMibRevMajor_oid), count);
    snmp_close(ss);
    if (master < 0 || ours < 0) {
        fprintf(stderr, "a GET failed: is the master running with temhostd attached?\n");
        return 1;
    }
    printf("requests per object:            %d\n", count);
    printf("master's own sysUpTime.0:       %8.0f GET/s\n", master);
    printf("vorMeMibRevMajor.0 over AgentX: %8.0f GET/s\n", ours);
    printf("ratio (ours / master):          %8.2f  (goal: at least 0.50)\n", ours / master);
    return 0;
}
