#include <sys/stat.h>
#include <sys/utsname.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblHostOsInfo_interface.h"
#include "mib-extns/vorHoInfo.h"
#include "platform/host_paths.h"

namespace {

TEST(HostOsInfo, DescriptionIsCutToTheBuffer) {
    struct utsname u;
    ASSERT_EQ(0, uname(&u));
    char small[12];
    memset(small, 'x', sizeof(small));
    EXPECT_EQ(1, get_HostOSDesc(small, sizeof(small)));
    EXPECT_EQ((std::string(u.nodename) + " running " + u.sysname).substr(0, 11), small);
}

// Telnet state from what a stand-in svcs prints.
TEST(HostOsInfo, TelnetOnlineOnlyWhenATelnetLineSaysSo) {
    char dir[] = "/tmp/temhostd-svcs-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    const std::string saved = platform::command_dir(), svcs = std::string(dir) + "/svcs";
    platform::set_command_dir(dir);
    const std::string ssh = "online         Nov_22   svc:/network/ssh:default\n";
    const std::pair<std::string, int> cases[] = {
        {ssh + "online         Nov_22   svc:/network/telnet:default\n", 2},
        {ssh + "disabled       Nov_22   svc:/network/telnet:default\n", 3},
        {"maintenance    Nov_22   svc:/network/telnet:default\n", 3},
        {"disabled       Nov_22   svc:/network/telnet:online_copy\n", 2}, // anywhere in line
    };
    for (const auto &[listing, expected] : cases) {
        std::ofstream(svcs) << "#!/bin/sh\ncat <<'END'\n" << listing << "END\n";
        chmod(svcs.c_str(), 0755);
        EXPECT_EQ(expected, get_HostOSTelnet()) << listing;
    }
    platform::set_command_dir(saved);
    std::filesystem::remove_all(dir);
}

TEST(HostOsInfo, LoadedRolesAreCutToTheirLimits) {
    set_system_role(std::string(70, 'L').c_str(), 70);
    set_system_role_detail(std::string(600, 'D').c_str(), 600);
    EXPECT_EQ(std::string(64, 'L'), get_system_role());
    EXPECT_EQ(std::string(512, 'D'), get_system_role_detail());
    set_system_role("", 0);
    set_system_role_detail("", 0);
}

} // namespace
