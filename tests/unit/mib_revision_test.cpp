// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include <gtest/gtest.h>

#include "mib-extns/vorMeMibGroup.h"

namespace {

TEST(MibCondition, OnlyOneToFourAreTaken) {
    const std::pair<int, int> cases[] = {{4, 4}, {5, 4}, {1, 1}, {0, 1}};
    for (const auto &[value, held] : cases) {
        set_mib_condition(value);
        EXPECT_EQ(held, g_MIbCond) << value;
    }
}

// Leading digits count, a line without a value switches polling on.
TEST(PollFrequencyToken, ValuesOfThePersistentLine) {
    const std::pair<const char *, int> cases[] = {{"  30s", 30}, {"", 60}, {"-5", 0}};
    for (const auto &[value, expected] : cases) {
        char buf[8];
        strcpy(buf, value);
        load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, buf);
        EXPECT_EQ(expected, g_osCommonPollFrequency) << "'" << value << "'";
    }
    g_osCommonPollFrequency = 0;
}

} // namespace
