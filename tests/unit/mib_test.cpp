// SPDX-License-Identifier: Apache-2.0
// The MIB layer: the tables' on-demand rebuild, the revision group's inputs.
#include <cstring>

#include <gtest/gtest.h>

#include "interface/KyOrblHostFs_interface.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/mib_registration.h"
#include "mib-extns/object_map.h"
#include "mib-extns/vorHoFileSysTable.h"
#include "mib-extns/vorHoInfo.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "mib-extns/vorMeMibGroup.h"
#include "unit_helpers.h"

namespace {

// A walk at each moment: the first rebuilds, then at most one per interval
// from the last rebuild; the clock going back rebuilds at once.
TEST(OnDemandPacing, AtMostOncePerIntervalFromTheLastRebuild) {
    const time_t t = 1700000000;
    time_t prev_req_time = 0;
    std::vector<bool> due;
    for (time_t now : {t, t + 9, t + 10, t + 19, t + 20, t - 3600})
        due.push_back(on_demand_rebuild_due(&prev_req_time, now, 10));
    EXPECT_EQ(due, (std::vector<bool>{true, false, true, false, true, true}));
}

// The first rebuild reads the rows below, later ones none; the clock moves
// past any pacing at each reading.
ScratchDir *s_dir = nullptr;
int s_readings = 0;
time_t stepping_clock() {
    const bool first = s_readings++ == 0;
    use_fixture(first ? "fs/mixed" : "none");
    s_dir->command("pkginfo", first ? "VORlynx3      VOR a\n              (amd64) 1\n" : "");
    return 1700000000 + 100 * s_readings;
}

// Sends one GETNEXT through the table's registered handler chain and
// returns the text answers.
std::vector<std::string> getnext(const oid *table, size_t len,
                                 const std::vector<std::vector<oid>> &names) {
    netsnmp_subtree *tree = netsnmp_subtree_find(table, len, nullptr, "");
    if (!tree) {
        return {"not registered"};
    }
    netsnmp_agent_request_info reqinfo{};
    reqinfo.mode = MODE_GETNEXT;
    std::vector<netsnmp_request_info> requests(names.size());
    netsnmp_variable_list *vars = nullptr;
    for (const auto &name : names) {
        std::vector<oid> full(table, table + len);
        full.insert(full.end(), name.begin(), name.end());
        snmp_varlist_add_variable(&vars, full.data(), full.size(), ASN_NULL, nullptr, 0);
    }
    netsnmp_variable_list *var = vars;
    for (size_t i = 0; i < requests.size(); ++i, var = var->next_variable) {
        requests[i].requestvb = var;
        requests[i].agent_req_info = &reqinfo;
        requests[i].next = i + 1 < requests.size() ? &requests[i + 1] : nullptr;
        requests[i].prev = i ? &requests[i - 1] : nullptr;
    }
    netsnmp_call_handlers(tree->reginfo, &reqinfo, requests.data());
    std::vector<std::string> texts;
    for (auto &r : requests) {
        texts.emplace_back(reinterpret_cast<const char *>(r.requestvb->val.string),
                           r.requestvb->type == ASN_OCTET_STR ? r.requestvb->val_len : 0);
        netsnmp_free_request_data_sets(&r);
    }
    snmp_free_varbind(vars);
    return texts;
}

// A GETNEXT of a text column's first row together with a request that runs
// off the column before it, so the iterator makes a second pass: with the
// clock past the pacing between the passes, both answers must still come
// from the rows of one rebuild (a rebuild between the passes frees the row
// the first answer holds).
TEST(OnDemandPacing, OneRebuildPerMessageEvenAcrossIteratorPasses) {
    ScratchDir dir;
    const struct {
        const oid *table;
        size_t len;
        void (*init)();
        oid text_column;
        const char *first_row;
    } cases[] = {
        {vorHoFileSysTable_oid, OID_LENGTH(vorHoFileSysTable_oid), init_vorHoFileSysTable,
         FSYS_DESC, "/dev/sda1 On /"},
        {vorHoSwVerTable_oid, OID_LENGTH(vorHoSwVerTable_oid), init_vorHoSwVerTable, SWVER_NAME,
         "VORlynx3"},
    };
    g_osCommonPollFrequency = 0;
    set_table_clock(stepping_clock);
    s_dir = &dir;
    for (const auto &c : cases) {
        c.init();
        s_readings = 0;
        EXPECT_EQ(std::vector<std::string>(2, c.first_row),
                  getnext(c.table, c.len, {{1, c.text_column}, {1, c.text_column - 1, 2}}));
    }
    set_table_clock(nullptr);
    erase_fs_container();
    cleanup_swver_list();
}

TEST(MibCondition, OnlyOneToFourAreTaken) {
    const std::pair<int, int> cases[] = {{4, 4}, {5, 4}, {1, 1}, {0, 1}};
    for (const auto &[value, held] : cases) {
        set_mib_condition(value);
        EXPECT_EQ(held, g_MIbCond) << value;
    }
}

// Leading digits count, a line without a value switches polling on; a
// text ends at a line end, so that it is stored again as one line.
TEST(PersistentTokens, ValuesOfThePersistentLines) {
    const std::pair<const char *, int> cases[] = {{"  30s", 30}, {"", 60}, {"-5", 0}};
    for (const auto &[value, expected] : cases) {
        char buf[8];
        strcpy(buf, value);
        load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, buf);
        EXPECT_EQ(expected, g_osCommonPollFrequency) << "'" << value << "'";
    }
    g_osCommonPollFrequency = 0;
    char role[] = "Web\rtrap2sink x";
    load_Orbl_Host_tokens(SYS_ROLE_TOKEN, role);
    EXPECT_STREQ("Web", get_system_role());
}

// A stored text is taken only as the persistent file gives it back: no
// blank first or last (the reader drops them), no '#' first (a comment),
// no NUL (the writer stops there), no line end.
TEST(PersistentTokens, TextsTheFileCannotCarryAreRefused) {
    const std::pair<std::string, int> cases[] = {{"Web front end", SNMP_ERR_NOERROR},
                                                 {"", SNMP_ERR_NOERROR},
                                                 {"web #1\x7f\xc3\xa9", SNMP_ERR_NOERROR},
                                                 {" 123456789ABCDEF", SNMP_ERR_BADVALUE},
                                                 {"Web ", SNMP_ERR_BADVALUE},
                                                 {"\tWeb", SNMP_ERR_BADVALUE},
                                                 {"Web\f", SNMP_ERR_BADVALUE},
                                                 {"\vWeb", SNMP_ERR_BADVALUE},
                                                 {"#1 web", SNMP_ERR_BADVALUE},
                                                 {std::string("We\0b", 4), SNMP_ERR_BADVALUE},
                                                 {"We\rb", SNMP_ERR_BADVALUE},
                                                 {"  ", SNMP_ERR_BADVALUE}};
    for (const auto &[text, status] : cases) {
        netsnmp_variable_list var{};
        snmp_set_var_typed_value(&var, ASN_OCTET_STR, text.data(), text.size());
        netsnmp_agent_request_info reqinfo{};
        reqinfo.mode = MODE_SET_RESERVE1;
        netsnmp_request_info request{};
        request.requestvb = &var;
        EXPECT_EQ(status, check_stored_text(&reqinfo, &request, 0, 64, nullptr))
            << "'" << text << "'";
        snmp_free_var_internals(&var);
    }
}

} // namespace
