// SPDX-License-Identifier: Apache-2.0
// The status record: the MIB status array built from injected local query
// answers, the operator texts and the trap flags.
#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/KyOrblNetSnmp_helpers.h"

namespace {

const oid kEnterprise[] = {1, 3, 6, 1, 4, 1, 32473};

// Answers by "m.k" (MIB number, object number); the rest go unanswered,
// or time out when listed in g_timeout.
std::map<std::string, long> g_answers;
std::string g_timeout;
std::vector<std::string> g_asked;
bool g_nest = false;

int fake_query(const oid *name, size_t len, long *value) {
    EXPECT_EQ(len, 11u);
    EXPECT_EQ(0, memcmp(name, kEnterprise, sizeof(kEnterprise)));
    EXPECT_EQ(name[8], 1u);
    EXPECT_EQ(name[10], 0u);
    const std::string k = std::to_string(name[7]) + "." + std::to_string(name[9]);
    g_asked.push_back(k);
    if (g_nest) { // a request handled while this query waits asks for a rebuild
        g_nest = false;
        do_misc();
    }
    if (k == g_timeout)
        return LOCAL_QUERY_TIMED_OUT;
    auto it = g_answers.find(k);
    if (it == g_answers.end())
        return LOCAL_QUERY_NOT_ANSWERED;
    *value = it->second;
    return LOCAL_QUERY_ANSWERED;
}

struct SysStatus : ::testing::Test {
    void SetUp() override {
        g_answers = {{"11.3", 2}, {"11.1", 1}, {"11.2", 26}};
        g_timeout.clear(), g_asked.clear();
        set_local_query_function(fake_query);
        set_mib_status_enterprise(kEnterprise, OID_LENGTH(kEnterprise));
    }
    void TearDown() override {
        set_local_query_function(nullptr);
        erase_sysstat_info();
    }
    static std::vector<int> entry(int m) {
        const u_char *a = reinterpret_cast<const u_char *>(get_mib_array()) + 4 * m;
        return {a[0], a[1], a[2], a[3]};
    }
};

TEST_F(SysStatus, OwnMibAloneFillsEntryElevenAndTheHeader) {
    ASSERT_EQ(0, do_misc());
    EXPECT_EQ(entry(0), (std::vector<int>{1, 2, 8, 0}));
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26}));
    const char *a = get_mib_array();
    EXPECT_EQ(7, std::count_if(a, a + MIB_ARRAY_SIZE, [](char c) { return c != 0; }));
    // Every MIB of the list, condition first, then the two revisions.
    std::vector<std::string> expected;
    for (int m : {1, 2, 3, 6, 8, 10, 11, 18})
        for (int k : {3, 1, 2})
            expected.push_back(std::to_string(m) + "." + std::to_string(k));
    EXPECT_EQ(g_asked, expected);
}

TEST_F(SysStatus, OverallConditionIsTheLargestOfThisRebuildsAnswers) {
    g_answers["3.3"] = 1; // condition only: revisions stay zero
    g_answers.insert({{"8.3", 4}, {"8.1", 3}, {"8.2", 5}});
    do_misc();
    EXPECT_EQ(entry(3), (std::vector<int>{1, 1, 0, 0}));
    EXPECT_EQ(entry(8), (std::vector<int>{1, 4, 3, 5}));
    EXPECT_EQ(entry(0)[1], 4);
    // MIB 8 stops answering: its entry stays, the condition is worked out afresh.
    for (const char *k : {"8.3", "8.1", "8.2"})
        g_answers.erase(k);
    do_misc();
    EXPECT_EQ(entry(8), (std::vector<int>{1, 4, 3, 5}));
    EXPECT_EQ(entry(0)[1], 2);
    // Compared on the full value: 256 outranks 2, then is cut to its octet.
    g_answers["6.3"] = 256;
    do_misc();
    EXPECT_EQ(entry(6), (std::vector<int>{1, 0, 0, 0}));
    EXPECT_EQ(entry(0)[1], 0);
    g_answers.clear(); // nothing answers: the agent's own state (1) is the floor
    do_misc();
    EXPECT_EQ(entry(0), (std::vector<int>{1, 1, 8, 0}));
}

TEST_F(SysStatus, FirstTimeOutEndsTheRebuildAndKeepsTheEntries) {
    g_answers["2.3"] = 3;
    do_misc();
    g_asked.clear();
    g_answers["2.3"] = 4;
    g_timeout = "3.3";
    do_misc();
    EXPECT_EQ(g_asked, (std::vector<std::string>{"1.3", "1.1", "1.2", "2.3", "2.1", "2.2", "3.3"}));
    EXPECT_EQ(entry(2), (std::vector<int>{1, 4, 0, 0})) << "answers before the time-out count";
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26})) << "later entries kept";
    EXPECT_EQ(entry(0)[1], 4) << "overall condition from this rebuild's answers";
}

TEST_F(SysStatus, RebuildAskedForDuringARebuildDoesNotNest) {
    g_nest = true;
    do_misc();
    EXPECT_EQ(g_asked.size(), 24u);
    g_asked.clear();
    do_misc(); // the guard is released afterwards
    EXPECT_EQ(g_asked.size(), 24u);
}

TEST_F(SysStatus, TextsAreCutToTheirFields) {
    set_generic_data("ignored"); // no record: nothing happens
    EXPECT_EQ(nullptr, get_generic_data());
    ASSERT_EQ(0, do_init());
    EXPECT_STREQ("generic trap data", get_generic_data());
    set_generic_data(std::string(300, 'g').c_str());
    EXPECT_EQ(std::string(254, 'g'), get_generic_data());
    set_crit_data(std::string(600, 'c').c_str());
    EXPECT_EQ(std::string(511, 'c'), get_crit_data());
    set_crit_data("abcdef", 3); // a SET's value: bounded by its length
    EXPECT_STREQ("abc", get_crit_data());
    set_guid_str("0123456789abcdefXYZ", 19);
    EXPECT_EQ(0, memcmp(getGuid(), "0123456789abcdefX", 17));
}

TEST_F(SysStatus, TrapFlagsPackLeastSignificantBitFirst) {
    trap_flag_t f;
    memset(&f, 0, sizeof(f));
    f.agent_Type = 1;
    EXPECT_EQ(0x1, pack_trap_flags(&f));
    f.iPAddrType = 1, f.trapCondn = 5, f.reserved = 1;
    EXPECT_EQ(0x37, pack_trap_flags(&f));
    EXPECT_EQ(0, get_trap_flags()); // no record
}

} // namespace
