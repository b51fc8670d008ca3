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

// Answers by "m.k" (MIB number, object number); anything else is not
// answered. A query listed in timeouts times out.
std::map<std::string, long> g_answers;
std::vector<std::string> g_timeouts;
std::vector<std::string> g_asked;
bool g_nest = false;

std::string key(int m, int k) {
    return std::to_string(m) + "." + std::to_string(k);
}

int fake_query(const oid *name, size_t len, long *value) {
    EXPECT_EQ(len, 11u);
    EXPECT_EQ(0, memcmp(name, kEnterprise, sizeof(kEnterprise)));
    EXPECT_EQ(name[8], 1u);
    EXPECT_EQ(name[10], 0u);
    const std::string k = key(static_cast<int>(name[7]), static_cast<int>(name[9]));
    g_asked.push_back(k);
    if (g_nest) {
        // A request handled while this query waits asks for another rebuild.
        g_nest = false;
        do_misc();
    }
    for (const std::string &t : g_timeouts) {
        if (t == k) {
            return LOCAL_QUERY_TIMED_OUT;
        }
    }
    auto it = g_answers.find(k);
    if (it == g_answers.end()) {
        return LOCAL_QUERY_NOT_ANSWERED;
    }
    *value = it->second;
    return LOCAL_QUERY_ANSWERED;
}

struct SysStatus : ::testing::Test {
    void SetUp() override {
        g_answers = {{"11.3", 2}, {"11.1", 1}, {"11.2", 26}};
        g_timeouts.clear();
        g_asked.clear();
        g_nest = false;
        set_local_query_function(fake_query);
        set_mib_status_enterprise(kEnterprise, OID_LENGTH(kEnterprise));
    }
    void TearDown() override {
        set_local_query_function(nullptr);
        erase_sysstat_info();
    }
    static std::vector<int> entry(int m) {
        const u_char *a = reinterpret_cast<const u_char *>(get_mib_array());
        return {a[4 * m], a[4 * m + 1], a[4 * m + 2], a[4 * m + 3]};
    }
    static int nonzero_outside(std::initializer_list<int> mibs) {
        const u_char *a = reinterpret_cast<const u_char *>(get_mib_array());
        int n = 0;
        for (int m = 1; m < 64; ++m) {
            if (std::find(mibs.begin(), mibs.end(), m) != mibs.end()) {
                continue;
            }
            for (int o = 0; o < 4; ++o) {
                n += a[4 * m + o] != 0;
            }
        }
        return n;
    }
};

TEST_F(SysStatus, OwnMibAloneFillsEntryElevenAndTheHeader) {
    ASSERT_EQ(0, do_misc());
    EXPECT_EQ(entry(0), (std::vector<int>{1, 2, 8, 0}));
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26}));
    EXPECT_EQ(0, nonzero_outside({11}));
    // Every MIB of the list, condition first, then the two revisions.
    std::vector<std::string> expected;
    for (int m : {1, 2, 3, 6, 8, 10, 11, 18}) {
        for (int k : {3, 1, 2}) {
            expected.push_back(key(m, k));
        }
    }
    EXPECT_EQ(g_asked, expected);
}

TEST_F(SysStatus, PartialAnswersLargeValuesAndSilentMibs) {
    g_answers["3.3"] = 1; // condition only: revisions stay zero
    g_answers["8.3"] = 4;
    g_answers["8.1"] = 3;
    g_answers["8.2"] = 5;
    do_misc();
    EXPECT_EQ(entry(3), (std::vector<int>{1, 1, 0, 0}));
    EXPECT_EQ(entry(8), (std::vector<int>{1, 4, 3, 5}));
    EXPECT_EQ(entry(0)[1], 4) << "overall condition is the largest";

    // MIB 8 stops answering: its entry stays, the overall condition is
    // worked out afresh from this rebuild's answers.
    g_answers.erase("8.3");
    g_answers.erase("8.1");
    g_answers.erase("8.2");
    g_answers["18.1"] = 0x1234; // above 255: its low octet
    do_misc();
    EXPECT_EQ(entry(8), (std::vector<int>{1, 4, 3, 5}));
    EXPECT_EQ(entry(18), (std::vector<int>{0, 0, 0x34, 0})) << "no condition answered";
    EXPECT_EQ(entry(0)[1], 2);

    // Compared on the full value: 256 outranks 2, then is cut to its octet.
    g_answers["6.3"] = 256;
    do_misc();
    EXPECT_EQ(entry(6), (std::vector<int>{1, 0, 0, 0}));
    EXPECT_EQ(entry(0)[1], 0);
    // Nothing answers at all: the agent's own state (1) is the floor.
    g_answers.clear();
    do_misc();
    EXPECT_EQ(entry(0), (std::vector<int>{1, 1, 8, 0}));
}

TEST_F(SysStatus, FirstTimeOutEndsTheRebuildAndKeepsTheEntries) {
    g_answers["2.3"] = 3;
    do_misc();
    g_asked.clear();
    g_answers["2.3"] = 4;
    g_timeouts = {"3.3"};
    do_misc();
    EXPECT_EQ(g_asked, (std::vector<std::string>{"1.3", "1.1", "1.2", "2.3", "2.1", "2.2", "3.3"}));
    EXPECT_EQ(entry(2), (std::vector<int>{1, 4, 0, 0})) << "answers before the time-out count";
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26})) << "later entries kept";
    EXPECT_EQ(entry(0)[1], 3) << "overall condition of the last whole rebuild";
}

TEST_F(SysStatus, RebuildAskedForDuringARebuildDoesNotNest) {
    g_nest = true;
    do_misc();
    EXPECT_EQ(g_asked.size(), 24u);
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26}));
    g_asked.clear();
    do_misc(); // the guard is released afterwards
    EXPECT_EQ(g_asked.size(), 24u);
}

TEST_F(SysStatus, TextsAreCutToTheirFields) {
    EXPECT_EQ(nullptr, get_generic_data());
    set_generic_data("ignored"); // no record: nothing happens
    EXPECT_EQ(0, get_web_mgmt_port());
    ASSERT_EQ(0, do_init());
    EXPECT_STREQ("generic trap data", get_generic_data());
    EXPECT_STREQ("", get_crit_data());
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
    f.iPAddrType = 1;
    EXPECT_EQ(0x3, pack_trap_flags(&f));
    f.trapCondn = 5;
    EXPECT_EQ(0x17, pack_trap_flags(&f));
    f.reserved = 1;
    EXPECT_EQ(0x37, pack_trap_flags(&f));
    EXPECT_EQ(0, get_trap_flags()); // no record
    do_init();
    EXPECT_EQ(0, get_trap_flags());
}

} // namespace
