// SPDX-License-Identifier: Apache-2.0
#include <sys/utsname.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblHostOsInfo_interface.h"
#include "mib-extns/vorHoInfo.h"
#include "unit_helpers.h"

namespace {

TEST(HostOsInfo, TextsAreCutToTheirBuffers) {
    struct utsname u;
    ASSERT_EQ(0, uname(&u));
    char small[12];
    memset(small, 'x', sizeof(small));
    EXPECT_EQ(1, get_HostOSDesc(small, sizeof(small)));
    EXPECT_EQ((std::string(u.nodename) + " running " + u.sysname).substr(0, 11), small);
    set_system_role_detail(std::string(600, 'D').c_str(), 600);
    EXPECT_EQ(std::string(512, 'D'), get_system_role_detail());
    set_system_role_detail("", 0);
}

// Telnet state from what a stand-in svcs prints.
TEST(HostOsInfo, TelnetOnlineOnlyWhenATelnetLineSaysSo) {
    ScratchDir dir;
    const std::string ssh = "online         Nov_22   svc:/network/ssh:default\n";
    const std::pair<std::string, int> cases[] = {
        {ssh + "online         Nov_22   svc:/network/telnet:default\n", 2},
        {ssh + "disabled       Nov_22   svc:/network/telnet:default\n", 3},
        {"maintenance    Nov_22   svc:/network/telnet:default\n", 3},
        {"disabled       Nov_22   svc:/network/telnet:online_copy\n", 2}, // anywhere in line
    };
    for (const auto &[listing, expected] : cases) {
        dir.command("svcs", listing);
        EXPECT_EQ(expected, get_HostOSTelnet()) << listing;
    }
}

} // namespace
