// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblHostOsInfo_interface.h"
#include "unit_helpers.h"

namespace {

// Telnet's state from what a stand-in svcs prints; the command runs through
// the shell from a directory whose name needs quoting.
TEST(HostOsInfo, TelnetOnlineOnlyWhenItsLineSaysSo) {
    ScratchDir dir;
    const std::pair<const char *, int> cases[] = {{"online", 2}, {"disabled", 3}};
    for (const auto &[state, expected] : cases) {
        dir.command("svcs", std::string(state) + "   Nov_22   svc:/network/telnet:default\n");
        EXPECT_EQ(expected, get_HostOSTelnet()) << state;
    }
}

} // namespace
