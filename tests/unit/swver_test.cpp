// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "unit_helpers.h"

namespace {

using Rows = std::vector<std::string>;

struct SwVer : ::testing::Test {
    void SetUp() override { cleanup_swver_list(); }
    void TearDown() override {
        cleanup_swver_list();
        free_softwareWatch();
        set_swver_command_runner(nullptr);
        while (alterList) { // edits live for the run; each test starts without
            altered_swver_entry *next = alterList->next;
            delete alterList;
            alterList = next;
        }
        alt_index = 0;
    }
    static void parse(const std::string &listing) {
        FILE *fp = fmemopen(const_cast<char *>(listing.data()), listing.size(), "r");
        ASSERT_NE(nullptr, fp);
        read_pkg_listing(fp, [](int, const char *) { return int(SWVER_STATUS_UNKNOWN); });
        fclose(fp);
    }
    // "index type name|description|version" per row.
    static Rows rows() {
        Rows out;
        for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
            const swver_t *r = n->vorSwverEntry;
            EXPECT_EQ(0, r->date[0] | r->versionBin[0]);
            out.push_back(std::to_string(r->index) + " " + std::to_string(r->type) + " " + r->name +
                          "|" + r->description + "|" + r->version);
        }
        return out;
    }
    static std::string pkg(const std::string &name, const std::string &synopsis,
                           const std::string &version = "1.0") {
        std::string first = name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ');
        return first + synopsis + "\n              (amd64) " + version + "\n";
    }
};

TEST_F(SwVer, ListingsParseAsTheInventoryRows) {
    const std::string d(200, 'd'), k61(61, 'k');
    const std::pair<std::string, Rows> cases[] = {
        {"KYQtem        Host agent for the platform\n              (i386) 7.9.0,REV=2007.11.15\n",
         {"1 3 KYQtem|Host agent for the platform\n|7.9.0"}},
        // KYQ only in an unrecognised package's text; pairing kept after it
        {pkg("libfoo", "uses KYQ", "1KYQ") + pkg("e1000g", "VOR gigabit driver"),
         {"1 2 e1000g|gigabit driver\n|1.0"}},
        {pkg("KYQvane", "a") + "KYQsorrel     b\n", {"1 4 KYQvane|a\n|1.0"}}, // truncated
        // no ')', ')' last, overlong version
        {"KYQtarn  x\n (amd64 7.9\nKYQmerl  y\n (amd64)\nky1  KYQ z\n (a) 12345678901,R\n",
         {"1 2 KYQtarn|x\n|", "2 2 KYQmerl|y\n|", "3 5 ky1|z\n|1234567890"}},
        // overlong description, no blank after the match, name cut to 63
        {pkg("net-snmp", "VOR " + d) + "KYQwisp\n (x) 2\n" + pkg("ky" + k61 + "kkkkkkk", "KYQ"),
         {"1 5 net-snmp|" + d.substr(0, 127) + "|1.0", "2 5 KYQwisp||2", "3 5 ky" + k61 + "||1.0"}},
        // 255-character first lines and longer ones stay paired
        {pkg("KYQvane", std::string(241, 'a')) + pkg("KYQvane2", std::string(400, 'b')) +
             pkg("KYQvane3", "c"),
         {"1 4 KYQvane|" + std::string(127, 'a') + "|1.0",
          "2 4 KYQvane2|" + std::string(127, 'b') + "|1.0", "3 4 KYQvane3|c\n|1.0"}},
        {"", {}},
    };
    for (const auto &[listing, want] : cases) {
        parse(pkg("KYQtem", "stale")); // every read starts from an empty list
        parse(listing);
        EXPECT_EQ(want, rows()) << listing;
        EXPECT_EQ(static_cast<int>(want.size()), g_NextIndex) << listing;
    }
}

TEST_F(SwVer, AHundredRowsAtMostAndTheNextIndexRunsOut) {
    char watch[] = "agent watched";
    parse_softwareWatch(SWVER_WATCH_TOKEN, watch);
    std::string listing = pkg("watched", "comes after the filters' rows, if room");
    for (int i = 1; i <= 120; ++i)
        listing += pkg("KYQtem" + std::to_string(i), "agent");
    parse(listing);
    const Rows got = rows();
    ASSERT_EQ(100u, got.size());
    EXPECT_EQ("100 3 KYQtem100|agent\n|1.0", got.back());
    EXPECT_EQ(100, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(101, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(-1, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(-1, g_NextIndex) << "stays -1";
    g_NextIndex = 100; // what the 100 rows still in the list account for
}

TEST(SwVerKinds, FiltersAndExecutablesByCaseSensitivePrefix) {
    const std::pair<const char *, int> kinds[] = {
        {"KYQtarnX", 2}, {"VORlynx3", 2},  {"e1000e", 2},     {"bge0", 2},   {"KYQmerl", 2},
        {"KYQtem", 3},   {"KYQfenAgt", 3}, {"KYQCoveAgt", 0}, {"kyq", 5},    {"net-snmp-x", 5},
        {"KYQwisp", 5},  {"KYQsorrel", 4}, {"KYQvane", 4},    {"Kyqtem", 0}, {"vorlynx3", 0},
    };
    for (const auto &[name, kind] : kinds)
        EXPECT_EQ(kind, is_eligible_pkg(name)) << name;
    EXPECT_STREQ("tarnd", get_exe_name("KYQtarn2"));
    EXPECT_STREQ("temhostd", get_exe_name("KYQtem"));
    EXPECT_EQ(nullptr, get_exe_name("KYQcoveAgt")) << "spelt KYQCoveAgt in the table";
    EXPECT_EQ(nullptr, get_exe_name("e1000g"));
    EXPECT_EQ(1, is_user_mode_drv("KYQtarn"));
    EXPECT_EQ(0, is_user_mode_drv("VORlynx3"));
}

// Without a pipe the list stays; without the command it empties.
TEST_F(SwVer, RefreshFailuresThroughAStandInPkginfo) {
    ScratchDir dir;
    dir.command("pkginfo", pkg("VORlynx3", "VOR nic") + pkg("e1000g", "VOR nic"));
    EXPECT_EQ(1, refresh_SwverLoad_CB());
    ASSERT_EQ(2u, rows().size());
    struct rlimit saved, none = {0, 0};
    getrlimit(RLIMIT_NOFILE, &saved);
    none.rlim_max = saved.rlim_max;
    setrlimit(RLIMIT_NOFILE, &none);
    const int no_pipe = refresh_SwverLoad_CB();
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(0, no_pipe);
    EXPECT_EQ(2u, rows().size());
    std::filesystem::remove(dir.path + "/pkginfo");
    EXPECT_EQ(1, refresh_SwverLoad_CB());
    EXPECT_TRUE(rows().empty());
}

// Runs of each check command by command, and what they print.
std::map<std::string, int> g_runs;
bool fake_lists(const char *command, std::vector<std::string> *lines) {
    ++g_runs[command];
    if (strstr(command, " -w")) { // the kernel's modules
        *lines = {" Id Loadaddr   Size Info Rev Module Name",
                  "  1 c0a00000  f5000    -   1  mydrv"};
    } else {
        *lines = {"UID PID PPID C STIME TTY TIME CMD",
                  "root 7 1 0 10:00 ? 00:00:01 /usr/sbin/snmpd -f",
                  "root 8 1 0 10:00 ? 00:00:01 /usr/bin/temhostd",
                  "root 9 5 0 10:00 ? 00:00:00 grep kyqd"};
    }
    return true;
}

TEST_F(SwVer, WatchedPackagesAfterTheFiltersRowsWithEachListTakenOncePerRefresh) {
    const char *lines[] = {
        "9 snmpd",
        "snmpd",
        "agent snmpd ps snmpd",
        "agent snmpd process",
        "5 snmpd module x y",
        "application snmpd process snmpd",
        "1 snmp",
        "AGENT temhostd process temhostd",
        "driver mydrv module mydrv",
        "4 KYQ process kyqd",
        "3 kyq-none",
        "2 vorlynx module vorlynx3",
    };
    for (const char *text : lines) {
        std::string line = text;
        parse_softwareWatch(SWVER_WATCH_TOKEN, line.data());
    }
    ScratchDir dir;
    dir.command("pkginfo", pkg("snmp", "tools") + pkg("KYQvane", "VOR utility") +
                               pkg("mydrv-dkms", "x") + pkg("snmpd", "SNMP agent", "5.9.3+dfsg-2") +
                               pkg("KYQCoveAgt", "VOR x") + pkg("KYQtem", "host agent") +
                               pkg("temhostd", "agent") + pkg("other", "x") +
                               pkg("VORlynx3", "VOR nic") + pkg("kyq-none", "n"));
    set_swver_command_runner(fake_lists);
    const Rows want = {"1 4 KYQvane 1",    "2 3 KYQtem 2",     "3 2 VORlynx3 3",
                       "4 1 snmp 1",       "5 2 mydrv-dkms 2", "6 5 snmpd 2",
                       "7 4 KYQCoveAgt 3", "8 3 temhostd 2",   "9 3 kyq-none 1"};
    for (int refresh = 1; refresh <= 2; ++refresh) {
        g_runs.clear();
        ASSERT_EQ(1, refresh_SwverLoad_CB());
        Rows got;
        for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
            const swver_t *r = n->vorSwverEntry;
            got.push_back(std::to_string(r->index) + " " + std::to_string(r->type) + " " + r->name +
                          " " + std::to_string(r->status));
        }
        EXPECT_EQ(want, got);
        EXPECT_EQ(2u, g_runs.size());
        for (const auto &[command, runs] : g_runs)
            EXPECT_EQ(1, runs) << command;
        UpdateAlteredList("snmpd", "edited", SWVER_DESCRIPTION);
    }
    EXPECT_STREQ("edited", swVerList->next->next->next->next->next->vorSwverEntry->description);
    EXPECT_STREQ("5.9.3+dfsg", swVerList->next->next->next->next->next->vorSwverEntry->version);
}

// The plain case is checked end to end; here a package twice, an edit kept
// while its package is away, and the writes' guards.
TEST_F(SwVer, EditsFollowThePackageAcrossRebuilds) {
    parse(pkg("KYQvane", "util") + pkg("KYQtem", "agent"));
    ASSERT_EQ(0, set_swver_column_val_str(SWVER_DESCRIPTION, 2, "mine", 4));
    ASSERT_EQ(1, UpdateAlteredList("KYQtem", "mine", SWVER_DESCRIPTION));
    const int kind = 5;
    ASSERT_EQ(1, UpdateAlteredList("KYQtem", &kind, SWVER_TYPE));
    ASSERT_EQ(1, UpdateAlteredList("KYQwisp", "/opt/one", SWVER_LOCATION));
    ASSERT_EQ(1, UpdateAlteredList("KYQwisp", "/opt/two", SWVER_LOCATION));
    parse(pkg("KYQvane", "util") + pkg("KYQtem", "agent") + pkg("KYQwisp", "back") +
          pkg("KYQtem", "twice"));
    EXPECT_EQ((Rows{"1 4 KYQvane|util\n|1.0", "2 5 KYQtem|mine|1.0", "3 5 KYQwisp|back\n|1.0",
                    "4 5 KYQtem|mine|1.0"}),
              rows());
    EXPECT_STREQ("/opt/two", swVerList->next->next->vorSwverEntry->location);
    EXPECT_STREQ("", swVerList->next->vorSwverEntry->location) << "the inventory's";
    EXPECT_EQ(SNMP_ERR_GENERR, set_swver_column_val_int(SWVER_TYPE, 9, 1)) << "no row 9";
    const std::string too_long(300, 'L');
    EXPECT_EQ(0, set_swver_column_val_str(SWVER_LOCATION, 1, too_long.c_str(), 300));
    EXPECT_EQ(255u, strlen(swVerList->vorSwverEntry->location)) << "kept NUL-terminated";
}

// ACTION comes in a message of its own: the node found in RESERVE1 may have
// been freed by a rebuild since, so the row is found again by index.
TEST_F(SwVer, ActionFindsItsRowByIndexAfterARebuild) {
    parse(pkg("KYQvane", "a") + pkg("KYQtem", "b"));
    vorHo_Swver_t *stale = swVerList->next;
    parse(pkg("KYQtem", "b")); // frees the node kept above
    long kind = 2, index = 2;
    netsnmp_variable_list var{}, idx{};
    var.type = ASN_INTEGER, var.val.integer = &kind, var.val_len = sizeof(kind);
    idx.type = ASN_INTEGER, idx.val.integer = &index, idx.val_len = sizeof(index);
    netsnmp_table_request_info table_info{};
    table_info.colnum = SWVER_TYPE, table_info.indexes = &idx;
    netsnmp_request_info request{};
    request.requestvb = &var;
    netsnmp_request_add_list_data(
        &request, netsnmp_create_data_list(TABLE_HANDLER_NAME, &table_info, nullptr));
    netsnmp_request_add_list_data(&request,
                                  netsnmp_create_data_list(TABLE_ITERATOR_NAME, stale, nullptr));
    netsnmp_agent_request_info reqinfo{};
    reqinfo.mode = MODE_SET_ACTION;
    EXPECT_EQ(SNMP_ERR_GENERR, vorHoSwVerTable_handler(nullptr, nullptr, &reqinfo, &request));
    index = 1;
    request.status = 0, request.processed = 0;
    EXPECT_EQ(SNMP_ERR_NOERROR, vorHoSwVerTable_handler(nullptr, nullptr, &reqinfo, &request));
    EXPECT_EQ(2, swVerList->vorSwverEntry->type);
    ASSERT_NE(nullptr, alterList);
    EXPECT_STREQ("KYQtem", alterList->pkgName);
    netsnmp_free_all_list_data(request.parent_data);
}

} // namespace
