// SPDX-License-Identifier: Apache-2.0
// The software inventory: package kinds, the rows of a listing with their
// programs' states, and a SET whose row a rebuild replaced.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "unit_helpers.h"

namespace {

TEST(SwVerKinds, FirstFilterMatchingACaseSensitivePrefix) {
    const std::pair<const char *, int> kinds[] = {
        {"KYQtarnX", 2},   {"e1000e", 2}, {"KYQtem", 3},     {"KYQsorrel", 4}, {"KYQvane", 4},
        {"net-snmp-x", 5}, {"kyq", 5},    {"KYQCoveAgt", 0}, {"Kyqtem", 0},    {"vorlynx3", 0},
    };
    for (const auto &[name, kind] : kinds)
        EXPECT_EQ(kind, is_eligible_pkg(name)) << name;
}

// The process list: a grep for a program shows its name too.
bool fake_ps(const char *, std::vector<std::string> *lines) {
    *lines = {"root 8 1 0 10:00 ? 00:00:01 /usr/bin/temhostd",
              "root 9 5 0 10:00 ? 00:00:00 grep kywispd"};
    return true;
}

struct SwVer : ::testing::Test {
    void SetUp() override { set_swver_command_runner(fake_ps); }
    void TearDown() override {
        cleanup_swver_list();
        set_swver_command_runner(nullptr);
        free_softwareWatch();
    }
    static void parse(const std::string &listing) {
        FILE *fp = fmemopen(const_cast<char *>(listing.data()), listing.size(), "r");
        ASSERT_NE(nullptr, fp);
        read_pkg_listing(fp, get_current_status);
        fclose(fp);
    }
    static std::string pkg(const std::string &name, const std::string &synopsis = "x") {
        return name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ') + synopsis +
               "\n              (amd64) 1.0\n";
    }
};

// A hundred rows at most; a line longer than the read buffer keeps each
// package's two lines paired. The next index runs out past the hundredth.
TEST_F(SwVer, RowsWithTheirStatesAHundredAtMost) {
    std::string listing = pkg("KYQwisp", std::string(400, 'w'));
    for (int i = 1; i <= 120; ++i)
        listing += pkg("KYQtem" + std::to_string(i));
    parse(listing);
    std::vector<std::string> rows; // "index name kind state"
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
        const swver_t *r = n->vorSwverEntry;
        rows.push_back(std::to_string(r->index) + " " + r->name + " " + std::to_string(r->type) +
                       " " + std::to_string(r->status));
    }
    ASSERT_EQ(100u, rows.size());
    EXPECT_EQ("1 KYQwisp 5 3", rows.front()) << "only the grep shows its program";
    EXPECT_EQ("100 KYQtem99 3 2", rows.back());
    EXPECT_EQ(100, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(101, g_NextIndex);
    RecalculateNextIndex();
    EXPECT_EQ(-1, g_NextIndex);
    g_NextIndex = 100; // what the rows still in the list account for
}

// ACTION comes in a message of its own: the node the iterator found in
// RESERVE1 may have been freed by a rebuild since, so the row is found
// again by its index.
TEST_F(SwVer, ActionFindsItsRowByIndexAfterARebuild) {
    parse(pkg("KYQvane") + pkg("KYQtem"));
    vorHo_Swver_t *stale = swVerList->next;
    parse(pkg("KYQtem")); // frees the node kept above
    long kind = 2, index = 2;
    netsnmp_variable_list var{}, idx{};
    var.type = idx.type = ASN_INTEGER;
    var.val.integer = &kind, idx.val.integer = &index;
    var.val_len = idx.val_len = sizeof(long);
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
    index = 1, request.status = 0, request.processed = 0;
    EXPECT_EQ(SNMP_ERR_NOERROR, vorHoSwVerTable_handler(nullptr, nullptr, &reqinfo, &request));
    EXPECT_EQ(2, swVerList->vorSwverEntry->type);
    netsnmp_free_all_list_data(request.parent_data);
    while (altered_swver_entry *edit = alterList) { // edits live for the run
        alterList = edit->next;
        delete edit;
    }
}

// Rows of the filters and of the watch list ask the process and the module
// lists: each runs once per refresh whatever the rows, and again next time.
std::map<std::string, int> g_runs;
TEST_F(SwVer, EachListRunsOncePerRefreshForEveryRowThatAsks) {
    for (std::string line : {"agent temhostd process temhostd", "driver mydrv module mydrv"})
        parse_softwareWatch(SWVER_WATCH_TOKEN, line.data());
    ScratchDir dir;
    dir.command("pkginfo", pkg("KYQvane") + pkg("KYQtem") + pkg("VORlynx3", "VOR nic") +
                               pkg("temhostd") + pkg("mydrv-dkms"));
    set_swver_command_runner([](const char *command, std::vector<std::string> *lines) {
        ++g_runs[command];
        *lines = {"root 8 1 0 10:00 ? 00:00:01 /usr/bin/temhostd",
                  "  1 c0a00000  f5000    -   1  mydrv (mydrv)"};
        return true;
    });
    for (int refresh = 0; refresh < 2; ++refresh) {
        g_runs.clear();
        ASSERT_EQ(1, refresh_SwverLoad_CB());
        EXPECT_EQ(2u, g_runs.size());
        for (const auto &[command, runs] : g_runs)
            EXPECT_EQ(1, runs) << command;
    }
    std::vector<std::string> states;
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next)
        states.push_back(std::string(n->vorSwverEntry->name) + " " +
                         std::to_string(n->vorSwverEntry->status));
    EXPECT_EQ(states, (std::vector<std::string>{"KYQvane 1", "KYQtem 2", "VORlynx3 3", "temhostd 2",
                                                "mydrv-dkms 2"}));
}

} // namespace
