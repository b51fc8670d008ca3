// SPDX-License-Identifier: Apache-2.0
// check_temhostd: a Nagios-family check plugin that asks a host's snmpd for
// temhostd's tables and judges them (check_verdict.h). Rows are found by
// their names in every run: the daemon renumbers its tables when it
// rebuilds them, so an index read once means nothing the next time.
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "contrib/nagios/check_verdict.h"
#include "interface/KyOrblHostCpu_interface.h"
#include "interface/KyOrblHostFs_interface.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/object_map.h"

namespace {

const char *kProgram = "check_temhostd";
std::string g_mode = "fs";

[[noreturn]] void finish(const check::Result &r) {
    std::printf("%s\n", r.line(g_mode).c_str());
    std::fflush(stdout);
    std::exit(r.state);
}

[[noreturn]] void unknown(const std::string &why) {
    check::Result r;
    r.text = why;
    finish(r);
}

std::string no_answer(const std::string &where, int timeout) {
    return "no answer from " + where + " within " + std::to_string(timeout) + " s";
}

// Written from the SIGALRM handler: ready before the alarm is set.
char g_timeout_line[512];

extern "C" void on_alarm(int) {
    ssize_t n = write(STDOUT_FILENO, g_timeout_line, std::strlen(g_timeout_line));
    (void)n;
    _exit(check::UNKNOWN);
}

void usage(FILE *out) {
    std::fprintf(out,
                 "Usage: %s -H HOST [-p PORT] [-P 1|2c|3] [-C COMMUNITY]\n"
                 "       [-U USER -L LEVEL -a AUTH -A PHRASE -x PRIV -X PHRASE]\n"
                 "       [-m fs|cpu|software|status|memory] [-n GLOB]... [-w RANGE] [-c RANGE]\n"
                 "       [-t SECONDS]\n",
                 kProgram);
}

void help() {
    std::printf("%s %s\n", kProgram, PLUGIN_VERSION);
    std::printf("Checks a host running temhostd through its SNMP master agent (snmpd).\n\n");
    usage(stdout);
    std::printf(
        "\nOptions:\n"
        "  -h, --help             print this help and exit\n"
        "  -V, --version          print the version and exit\n"
        "  -H, --hostname=HOST    the host's name or address\n"
        "  -p, --port=PORT        its SNMP port (default 161)\n"
        "  -P, --protocol=VERSION SNMP version: 1, 2c (default) or 3\n"
        "  -C, --community=NAME   community of SNMPv1 and v2c (default public)\n"
        "  -U, --secname=USER     SNMPv3 user\n"
        "  -L, --seclevel=LEVEL   noAuthNoPriv, authNoPriv or authPriv (default: from -A, -X)\n"
        "  -a, --authproto=PROTO  MD5, SHA (default), SHA-224, SHA-256, SHA-384, SHA-512\n"
        "  -A, --authpasswd=TEXT  authentication pass phrase\n"
        "  -x, --privproto=PROTO  DES or AES (default)\n"
        "  -X, --privpasswd=TEXT  privacy pass phrase\n"
        "  -m, --mode=MODE        what to check (default fs):\n"
        "                           fs        used share of every file system; the fullest\n"
        "                                     decides (default -w 80 -c 90)\n"
        "                           cpu       busiest processor's 5-minute average, in per\n"
        "                                     cent (default -w 80 -c 90)\n"
        "                           software  CRITICAL when a watched package is not running\n"
        "                           status    the enterprise's overall condition: ok is OK,\n"
        "                                     degraded WARNING, failed CRITICAL, else UNKNOWN\n"
        "                           memory    used share of physical memory and of paging\n"
        "                                     space (default -w 90 -c 95)\n"
        "  -n, --name=GLOB        only the file systems mounted on (fs), or the packages\n"
        "                         named (software), a shell pattern; may be repeated\n"
        "  -w, --warning=RANGE    WARNING outside this range (per cent)\n"
        "  -c, --critical=RANGE   CRITICAL outside this range (per cent)\n"
        "  -t, --timeout=SECONDS  UNKNOWN when the agent has not answered by then\n"
        "                         (default 10)\n"
        "\nRanges: 10 (alert above 10 or below 0), 10: (below 10), ~:10 (above 10),\n"
        "10:20 (outside 10 to 20), @10:20 (inside 10 to 20, ends included).\n"
        "\nExit status: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN (also for bad options).\n");
}

struct Options {
    std::string host, port = "161", version = "2c", community = "public";
    std::string user, level, auth_proto = "SHA", auth_pass, priv_proto = "AES", priv_pass;
    std::vector<std::string> names;
    std::string warn, crit;
    int timeout = 10;
};

Options parse_options(int argc, char **argv) {
    static const option longs[] = {{"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, 'V'},
                                   {"hostname", required_argument, nullptr, 'H'},
                                   {"port", required_argument, nullptr, 'p'},
                                   {"protocol", required_argument, nullptr, 'P'},
                                   {"community", required_argument, nullptr, 'C'},
                                   {"secname", required_argument, nullptr, 'U'},
                                   {"seclevel", required_argument, nullptr, 'L'},
                                   {"authproto", required_argument, nullptr, 'a'},
                                   {"authpasswd", required_argument, nullptr, 'A'},
                                   {"privproto", required_argument, nullptr, 'x'},
                                   {"privpasswd", required_argument, nullptr, 'X'},
                                   {"mode", required_argument, nullptr, 'm'},
                                   {"name", required_argument, nullptr, 'n'},
                                   {"warning", required_argument, nullptr, 'w'},
                                   {"critical", required_argument, nullptr, 'c'},
                                   {"timeout", required_argument, nullptr, 't'},
                                   {nullptr, 0, nullptr, 0}};
    Options o;
    opterr = 0;
    for (int c;
         (c = getopt_long(argc, argv, "hVH:p:P:C:U:L:a:A:x:X:m:n:w:c:t:", longs, nullptr)) != -1;) {
        switch (c) {
        case 'h':
            help();
            std::exit(check::OK);
        case 'V':
            std::printf("%s %s\n", kProgram, PLUGIN_VERSION);
            std::exit(check::OK);
        case 'H':
            o.host = optarg;
            break;
        case 'p':
            o.port = optarg;
            break;
        case 'P':
            o.version = optarg;
            break;
        case 'C':
            o.community = optarg;
            break;
        case 'U':
            o.user = optarg;
            break;
        case 'L':
            o.level = optarg;
            break;
        case 'a':
            o.auth_proto = optarg;
            break;
        case 'A':
            o.auth_pass = optarg;
            break;
        case 'x':
            o.priv_proto = optarg;
            break;
        case 'X':
            o.priv_pass = optarg;
            break;
        case 'm':
            g_mode = optarg;
            break;
        case 'n':
            o.names.push_back(optarg);
            break;
        case 'w':
            o.warn = optarg;
            break;
        case 'c':
            o.crit = optarg;
            break;
        case 't': {
            char *end = nullptr;
            long t = std::strtol(optarg, &end, 10);
            if (*end || t < 1 || t > 3600)
                unknown(std::string("timeout '") + optarg + "' is not 1 to 3600 seconds");
            o.timeout = static_cast<int>(t);
            break;
        }
        default:
            usage(stderr);
            unknown(std::string("unknown option or missing argument: ") + argv[optind - 1]);
        }
    }
    if (optind < argc)
        unknown(std::string("unexpected argument '") + argv[optind] + "'");
    if (o.host.empty())
        unknown("no host given (-H)");
    if (g_mode != "fs" && g_mode != "cpu" && g_mode != "software" && g_mode != "status" &&
        g_mode != "memory") {
        std::string m = g_mode;
        g_mode = "";
        unknown("unknown mode '" + m + "' (fs, cpu, software, status or memory)");
    }
    if (o.version != "1" && o.version != "2c" && o.version != "3")
        unknown("unknown SNMP version '" + o.version + "' (1, 2c or 3)");
    if (o.version == "3" && o.user.empty())
        unknown("SNMPv3 needs a user (-U)");
    return o;
}

check::Thresholds thresholds(const Options &o, const char *warn, const char *crit) {
    check::Thresholds t;
    std::string error;
    for (auto [given, fallback, slot] :
         {std::tuple{&o.warn, warn, &t.warn}, std::tuple{&o.crit, crit, &t.crit}}) {
        std::string text = given->empty() ? fallback : *given;
        if (text.empty())
            continue;
        *slot = check::Range::parse(text, &error);
        if (!*slot)
            unknown(error);
    }
    return t;
}

// One SNMP session; every failure ends the run with UNKNOWN.
class Agent {
  public:
    explicit Agent(const Options &o) : where_(o.host + ":" + o.port), timeout_(o.timeout) {
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_QUICK_PRINT, 1);
        setenv("MIBS", "", 1); // numbers only: no MIB files to read
        init_snmp(kProgram);
        netsnmp_session s;
        snmp_sess_init(&s);
        std::string peer =
            (o.host.find(':') != std::string::npos ? "udp6:[" + o.host + "]" : o.host) + ":" +
            o.port;
        s.peername = const_cast<char *>(peer.c_str());
        // Two tries share the timeout; the alarm catches what is left over.
        s.retries = 1;
        s.timeout = o.timeout * 1000000L / 2;
        if (o.version == "3") {
            setup_v3(o, &s);
        } else {
            s.version = o.version == "1" ? SNMP_VERSION_1 : SNMP_VERSION_2c;
            s.community = reinterpret_cast<u_char *>(const_cast<char *>(o.community.c_str()));
            s.community_len = o.community.size();
        }
        v1_ = o.version == "1";
        handle_ = snmp_open(&s);
        if (!handle_)
            unknown("cannot open a session to " + where_ + ": " + snmp_api_errstring(snmp_errno));
    }

    // GET of scalars; the answers in the order asked.
    std::vector<netsnmp_variable_list *>
    get(const std::vector<std::pair<const oid *, size_t>> &oids) {
        netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
        for (auto [name, len] : oids)
            snmp_add_null_var(pdu, name, len);
        netsnmp_pdu *reply = ask(pdu);
        std::vector<netsnmp_variable_list *> out;
        for (auto *v = reply->variables; v; v = v->next_variable) {
            if (v->type == SNMP_NOSUCHOBJECT || v->type == SNMP_NOSUCHINSTANCE ||
                v->type == SNMP_ENDOFMIBVIEW)
                unknown(where_ +
                        " does not serve temhostd's objects (is temhostd attached to its snmpd, "
                        "and may this community or user read 1.3.6.1.4.1.32473.11?)");
            out.push_back(v);
        }
        if (out.size() != oids.size())
            unknown(where_ + " answered " + std::to_string(out.size()) + " of " +
                    std::to_string(oids.size()) + " objects");
        return out;
    }

    // The given columns of a table, walked side by side so that one row's
    // cells come from one answer: {row index: {column: value}}.
    struct Cell {
        long number = 0;
        std::string text;
    };
    using Rows = std::map<long, std::map<int, Cell>>;
    Rows walk(const oid *table, size_t table_len, const std::vector<int> &columns) {
        std::vector<oid> entry(table, table + table_len);
        entry.push_back(1);
        std::vector<std::vector<oid>> at;
        for (int c : columns) {
            at.push_back(entry);
            at.back().push_back(c);
        }
        std::vector<bool> done(columns.size(), false);
        Rows rows;
        for (;;) {
            std::vector<size_t> asked;
            for (size_t i = 0; i < columns.size(); ++i)
                if (!done[i])
                    asked.push_back(i);
            if (asked.empty())
                return rows;
            netsnmp_pdu *pdu = snmp_pdu_create(v1_ ? SNMP_MSG_GETNEXT : SNMP_MSG_GETBULK);
            if (!v1_) {
                pdu->non_repeaters = 0;
                pdu->max_repetitions = static_cast<long>(std::max<size_t>(1, 40 / asked.size()));
            }
            for (size_t i : asked)
                snmp_add_null_var(pdu, at[i].data(), at[i].size());
            netsnmp_pdu *reply = ask(pdu);
            size_t k = 0;
            for (auto *v = reply->variables; v; v = v->next_variable, ++k) {
                size_t i = asked[k % asked.size()];
                if (done[i])
                    continue;
                size_t prefix = entry.size() + 1;
                bool in_column = v->type != SNMP_ENDOFMIBVIEW && v->type != SNMP_NOSUCHOBJECT &&
                                 v->type != SNMP_NOSUCHINSTANCE && v->name_length == prefix + 1 &&
                                 netsnmp_oid_equals(v->name, prefix, at[i].data(), prefix) == 0;
                if (!in_column) {
                    done[i] = true;
                    continue;
                }
                if (snmp_oid_compare(v->name, v->name_length, at[i].data(), at[i].size()) <= 0)
                    unknown(where_ + " answered a walk with an OID that does not increase");
                at[i].assign(v->name, v->name + v->name_length);
                Cell &cell = rows[static_cast<long>(v->name[prefix])][columns[i]];
                if (v->type == ASN_OCTET_STR)
                    cell.text.assign(reinterpret_cast<const char *>(v->val.string), v->val_len);
                else if (v->type == ASN_INTEGER)
                    cell.number = *v->val.integer;
            }
        }
    }

    ~Agent() {
        for (auto *r : replies_)
            snmp_free_pdu(r);
        if (handle_)
            snmp_close(handle_);
    }

  private:
    netsnmp_pdu *ask(netsnmp_pdu *pdu) {
        netsnmp_pdu *reply = nullptr;
        int status = snmp_synch_response(handle_, pdu, &reply);
        if (reply)
            replies_.push_back(reply);
        if (status == STAT_TIMEOUT)
            unknown(no_answer(where_, timeout_)); // as the alarm says it
        if (status != STAT_SUCCESS)
            unknown(std::string("SNMP request to ") + where_ +
                    " failed: " + snmp_api_errstring(handle_->s_snmp_errno));
        if (reply->errstat != SNMP_ERR_NOERROR)
            unknown(where_ + " answered " + snmp_errstring(reply->errstat));
        return reply;
    }

    void setup_v3(const Options &o, netsnmp_session *s) {
        s->version = SNMP_VERSION_3;
        s->securityName = const_cast<char *>(o.user.c_str());
        s->securityNameLen = o.user.size();
        std::string level = o.level;
        if (level.empty())
            level = !o.priv_pass.empty()   ? "authPriv"
                    : !o.auth_pass.empty() ? "authNoPriv"
                                           : "noAuthNoPriv";
        if (level == "noAuthNoPriv")
            s->securityLevel = SNMP_SEC_LEVEL_NOAUTH;
        else if (level == "authNoPriv")
            s->securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
        else if (level == "authPriv")
            s->securityLevel = SNMP_SEC_LEVEL_AUTHPRIV;
        else
            unknown("unknown security level '" + level +
                    "' (noAuthNoPriv, authNoPriv or authPriv)");
        if (s->securityLevel == SNMP_SEC_LEVEL_NOAUTH)
            return;
        int auth = usm_lookup_auth_type(o.auth_proto.c_str());
        size_t len = 0;
        const oid *auth_oid = auth < 0 ? nullptr : sc_get_auth_oid(auth, &len);
        if (!auth_oid)
            unknown("unknown authentication protocol '" + o.auth_proto + "'");
        s->securityAuthProto = snmp_duplicate_objid(auth_oid, len);
        s->securityAuthProtoLen = len;
        key(o.auth_pass, "authentication", s, s->securityAuthKey, &s->securityAuthKeyLen);
        if (s->securityLevel != SNMP_SEC_LEVEL_AUTHPRIV)
            return;
        int priv = usm_lookup_priv_type(o.priv_proto.c_str());
        const oid *priv_oid = priv < 0 ? nullptr : sc_get_priv_oid(priv, &len);
        if (!priv_oid)
            unknown("unknown privacy protocol '" + o.priv_proto + "'");
        s->securityPrivProto = snmp_duplicate_objid(priv_oid, len);
        s->securityPrivProtoLen = len;
        key(o.priv_pass, "privacy", s, s->securityPrivKey, &s->securityPrivKeyLen);
    }

    static void key(const std::string &phrase, const char *what, netsnmp_session *s, u_char *out,
                    size_t *len) {
        *len = USM_AUTH_KU_LEN;
        if (phrase.size() < 8 || generate_Ku(s->securityAuthProto, s->securityAuthProtoLen,
                                             reinterpret_cast<const u_char *>(phrase.data()),
                                             phrase.size(), out, len) != SNMPERR_SUCCESS)
            unknown(std::string("the ") + what + " pass phrase must have 8 characters or more");
    }

    std::string where_;
    int timeout_;
    bool v1_ = false;
    netsnmp_session *handle_ = nullptr;
    std::vector<netsnmp_pdu *> replies_;
};

check::Result run(const Options &o) {
    // Bad thresholds are reported before any packet leaves.
    auto t = g_mode == "memory" ? thresholds(o, "90", "95") : thresholds(o, "80", "90");
    Agent agent(o);
    if (g_mode == "fs") {
        std::vector<check::FsRow> rows;
        for (auto &[index, cells] :
             agent.walk(vorHoFileSysTable_oid, OID_LENGTH(vorHoFileSysTable_oid),
                        {FSYS_DESC, FSYS_TOTAL_MB, FSYS_USED_MB, FSYS_PERCENT})) {
            (void)index;
            rows.push_back({cells[FSYS_DESC].text, cells[FSYS_TOTAL_MB].number,
                            cells[FSYS_USED_MB].number, cells[FSYS_PERCENT].number});
        }
        return check::judge_fs(rows, o.names, t);
    }
    if (g_mode == "cpu") {
        std::vector<check::CpuRow> rows;
        for (auto &[index, cells] :
             agent.walk(vorHoCpuUtilTable_oid, OID_LENGTH(vorHoCpuUtilTable_oid), {CPU_UTIL_5MIN}))
            rows.push_back({index, cells[CPU_UTIL_5MIN].number});
        return check::judge_cpu(rows, t);
    }
    if (g_mode == "software") {
        std::vector<check::SwRow> rows;
        for (auto &[index, cells] : agent.walk(vorHoSwVerTable_oid, OID_LENGTH(vorHoSwVerTable_oid),
                                               {SWVER_STATUS, SWVER_NAME})) {
            (void)index;
            rows.push_back({cells[SWVER_NAME].text, cells[SWVER_STATUS].number});
        }
        return check::judge_software(rows, o.names);
    }
    if (g_mode == "status") {
        auto v = agent.get({{vorHoMibStatusArray_oid, OID_LENGTH(vorHoMibStatusArray_oid)}});
        if (v[0]->type != ASN_OCTET_STR)
            unknown("the status array is not an OCTET STRING");
        return check::judge_status(
            std::string(reinterpret_cast<const char *>(v[0]->val.string), v[0]->val_len));
    }
    auto v = agent.get({{vorHoPhysicalMemorySize_oid, OID_LENGTH(vorHoPhysicalMemorySize_oid)},
                        {vorHoPhysicalMemoryFree_oid, OID_LENGTH(vorHoPhysicalMemoryFree_oid)},
                        {vorHoPagingMemorySize_oid, OID_LENGTH(vorHoPagingMemorySize_oid)},
                        {vorHoPagingMemoryFree_oid, OID_LENGTH(vorHoPagingMemoryFree_oid)}});
    long n[4];
    for (int i = 0; i < 4; ++i) {
        if (v[i]->type != ASN_INTEGER)
            unknown("a memory figure is not an INTEGER");
        n[i] = *v[i]->val.integer;
    }
    return check::judge_memory(n[0], n[1], n[2], n[3], t);
}

} // namespace

int main(int argc, char **argv) {
    Options o = parse_options(argc, argv);
    check::Result late;
    late.text = no_answer(o.host + ":" + o.port, o.timeout);
    std::snprintf(g_timeout_line, sizeof g_timeout_line, "%s\n", late.line(g_mode).c_str());
    struct sigaction sa = {};
    sa.sa_handler = on_alarm;
    sigaction(SIGALRM, &sa, nullptr);
    alarm(static_cast<unsigned>(o.timeout));
    finish(run(o));
}
