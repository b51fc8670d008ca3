// SPDX-License-Identifier: Apache-2.0
#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "mib-extns/vorMeMibGroup.h"

namespace {

TEST(MibCondition, OnlyOneToFourAreTaken) {
    const std::pair<int, int> cases[] = {{1, 1}, {0, 1}, {5, 1}, {4, 4}, {2, 2}};
    for (const auto &[value, held] : cases) {
        set_mib_condition(value);
        EXPECT_EQ(held, g_MIbCond) << value;
    }
}

TEST(PollFrequencyToken, ParsesLikeAtoiWithoutRangeCheck) {
    const std::pair<const char *, int> cases[] = {
        {"60", 60}, {"  30s", 30}, {"", 60}, {"-5", 0}, {"99999999999", INT_MAX}};
    for (const auto &[value, expected] : cases) {
        char buf[64];
        strcpy(buf, value);
        load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, buf);
        EXPECT_EQ(expected, g_osCommonPollFrequency) << "'" << value << "'";
    }
    load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, nullptr);
    EXPECT_EQ(60, g_osCommonPollFrequency);
    char other[] = "7";
    load_Orbl_Host_OsComm_tokens("hostguid", other);
    EXPECT_EQ(60, g_osCommonPollFrequency) << "other tokens are not ours";
    g_osCommonPollFrequency = 0;
}

} // namespace
