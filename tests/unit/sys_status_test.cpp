// SPDX-License-Identifier: Apache-2.0
// The MIB status array built from injected local query answers, and the
// operator texts of the status record.
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/KyOrblNetSnmp_helpers.h"

namespace {

// Answers by "m.k" (MIB number, object number); the rest go unanswered,
// g_timeout times out.
std::map<std::string, long> g_answers;
std::string g_timeout;
std::vector<std::string> g_asked;
bool g_nest = false;

int fake_query(const oid *name, size_t, long *value) {
    const std::string k = std::to_string(name[7]) + "." + std::to_string(name[9]);
    g_asked.push_back(k);
    if (g_nest) { // a request served while this query waits asks for a rebuild
        g_nest = false;
        do_misc();
    }
    if (k == g_timeout)
        return LOCAL_QUERY_TIMED_OUT;
    const auto it = g_answers.find(k);
    if (it == g_answers.end())
        return LOCAL_QUERY_NOT_ANSWERED;
    *value = it->second;
    return LOCAL_QUERY_ANSWERED;
}

std::vector<int> entry(int m) {
    const u_char *a = reinterpret_cast<const u_char *>(get_mib_array()) + 4 * m;
    return {a[0], a[1], a[2], a[3]};
}

// An entry holds presence, condition, major and minor revision; the header
// the largest condition of this rebuild (the agent's own 1 at least) and
// the count of MIBs. The first time-out ends a rebuild.
TEST(SysStatus, EntriesHeaderTimeOutAndTexts) {
    static const oid enterprise[] = {1, 3, 6, 1, 4, 1, 32473};
    set_local_query_function(fake_query);
    set_mib_status_enterprise(enterprise, OID_LENGTH(enterprise));
    g_answers = {{"11.3", 2}, {"11.1", 1}, {"11.2", 26}, {"18.3", 3}};
    g_nest = true;
    ASSERT_EQ(0, do_misc());
    EXPECT_EQ(24u, g_asked.size()) << "eight MIBs, three objects each, no nested rebuild";
    EXPECT_EQ(entry(0), (std::vector<int>{1, 3, 8, 0}));
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26}));
    EXPECT_EQ(entry(18), (std::vector<int>{1, 3, 0, 0}));
    g_asked.clear(), g_timeout = "3.3";
    do_misc();
    EXPECT_EQ(7u, g_asked.size()) << "nothing asked after the time-out";
    EXPECT_EQ(entry(11), (std::vector<int>{1, 2, 1, 26})) << "entries kept";
    EXPECT_EQ(entry(0)[1], 1) << "only this rebuild's answers count";

    set_generic_data(std::string(300, 'g').c_str()); // cut, leaving room for the NUL
    EXPECT_EQ(std::string(254, 'g'), get_generic_data());
    set_local_query_function(nullptr);
    erase_sysstat_info();
}

} // namespace
