#include <sys/stat.h>
#include <sys/utsname.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblHostOsInfo_interface.h"
#include "mib-extns/vorHoInfo.h"
#include "platform/host_paths.h"
#include "tests/unit/agent_request.h"

namespace {

TEST(HostOsInfo, DescriptionFormatAndTruncation) {
    struct utsname u;
    ASSERT_EQ(0, uname(&u));
    const std::string full =
        std::string(u.nodename) + " running " + u.sysname + " " + u.release + " " + u.version;
    AgentRequest get;
    EXPECT_EQ(SNMP_ERR_NOERROR, get.run(get_vorHoDesc, MODE_GET));
    EXPECT_EQ(full.substr(0, 255), get.text_value());

    char small[12];
    memset(small, 'x', sizeof(small));
    EXPECT_EQ(1, get_HostOSDesc(small, sizeof(small)));
    EXPECT_EQ(full.substr(0, 11), small) << "cut at namelen - 1, NUL-terminated";
}

TEST(HostOsInfo, ReadOnlyObjectsAnswerOnlyGets) {
    AgentRequest name, type;
    EXPECT_EQ(SNMP_ERR_NOERROR, name.run(get_vorHoName, MODE_GET));
    char expected[256] = {};
    EXPECT_GT(get_HostOSName(expected, sizeof(expected)), 1);
    EXPECT_EQ(expected, name.text_value()) << "sent without the NUL";
    EXPECT_EQ(SNMP_ERR_NOERROR, type.run(get_vorHoOsType, MODE_GET));
    EXPECT_EQ(19, type.integer_value());

    AgentRequest other;
    other.text("kept");
    EXPECT_EQ(SNMP_ERR_GENERR, other.run(get_vorHoVersion, MODE_SET_RESERVE1));
    EXPECT_EQ("kept", other.text_value());
}

// A stand-in svcs printing what the test wants and counting its runs.
struct Telnet : ::testing::Test {
    std::filesystem::path dir;
    std::string saved_dir = platform::command_dir();
    void SetUp() override {
        char tmpl[] = "/tmp/temhostd-svcs-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        dir = tmpl;
        platform::set_command_dir(dir.string());
    }
    void TearDown() override {
        platform::set_command_dir(saved_dir);
        std::filesystem::remove_all(dir);
    }
    void svcs_prints(const std::string &listing) {
        std::ofstream(dir / "svcs")
            << "#!/bin/sh\necho >> '" << (dir / "runs").string() << "'\ncat <<'END'\n"
            << listing << "END\n";
        chmod((dir / "svcs").c_str(), 0755);
    }
};

TEST_F(Telnet, OnlineOnlyWhenATelnetLineSaysSo) {
    const std::string ssh = "online         Nov_22   svc:/network/ssh:default\n";
    const struct {
        std::string listing;
        int expected;
    } cases[] = {
        {ssh + "online         Nov_22   svc:/network/telnet:default\n", 2},
        {ssh + "disabled       Nov_22   svc:/network/telnet:default\n", 3},
        {"maintenance    Nov_22   svc:/network/telnet:default\n", 3},
        {ssh, 3}, // no telnet line: another service's state does not count
        {"disabled       Nov_22   svc:/network/telnet:online_copy\n", 2}, // anywhere in line
    };
    for (const auto &c : cases) {
        svcs_prints(c.listing);
        EXPECT_EQ(c.expected, get_HostOSTelnet()) << c.listing;
    }
}

TEST_F(Telnet, EveryGetRunsTheQueryAfresh) {
    svcs_prints("online         Nov_22   svc:/network/telnet:default\n");
    AgentRequest first, second;
    first.run(get_vorHoTelnet, MODE_GET);
    EXPECT_EQ(SNMP_ERR_NOERROR, second.run(get_vorHoTelnet, MODE_GET));
    EXPECT_EQ(2, second.integer_value());
    std::ifstream runs(dir / "runs");
    std::string all((std::istreambuf_iterator<char>(runs)), {});
    EXPECT_EQ("\n\n", all);

    std::filesystem::remove(dir / "svcs");
    testing::internal::CaptureStderr(); // the shell reports the missing command
    EXPECT_EQ(3, get_HostOSTelnet());
    testing::internal::GetCapturedStderr();
}

struct Role : ::testing::Test {
    void SetUp() override {
        set_system_role("", 0);
        set_system_role_detail("", 0);
    }
    static std::string get(Netsnmp_Node_Handler *handler) {
        AgentRequest r;
        EXPECT_EQ(SNMP_ERR_NOERROR, r.run(handler, MODE_GET));
        return r.text_value();
    }
};

TEST_F(Role, Reserve1ChecksTypeThenLength) {
    for (auto [handler, limit] :
         {std::pair{do_vorHoSystemRole, 64u}, std::pair{do_vorHoSystemRoleDetail, 512u}}) {
        AgentRequest longest, too_long, wrong_type;
        longest.text(std::string(limit, 'r'));
        EXPECT_EQ(SNMP_ERR_NOERROR, longest.run(handler, MODE_SET_RESERVE1));
        EXPECT_EQ(SNMP_ERR_NOERROR, longest.run(handler, MODE_SET_ACTION));
        EXPECT_EQ(std::string(limit, 'r'), get(handler));

        too_long.text(std::string(limit + 1, 'x'));
        EXPECT_EQ(SNMP_ERR_WRONGLENGTH, too_long.run(handler, MODE_SET_RESERVE1));
        EXPECT_EQ(SNMP_ERR_WRONGLENGTH, too_long.request.status);
        EXPECT_EQ(std::string(limit, 'r'), get(handler)) << "a refused value changes nothing";

        wrong_type.text(std::string(600, 'x')); // too long as well: the type is reported
        wrong_type.var.type = ASN_INTEGER;
        EXPECT_EQ(SNMP_ERR_WRONGTYPE, wrong_type.run(handler, MODE_SET_RESERVE1));
        EXPECT_EQ(SNMP_ERR_WRONGTYPE, wrong_type.request.status);
    }
}

TEST_F(Role, ActionReplacesTheWholeValueAndUndoKeepsIt) {
    AgentRequest first, shorter, empty;
    first.text("Web and database server");
    first.run(do_vorHoSystemRole, MODE_SET_ACTION);
    shorter.text("Web");
    EXPECT_EQ(SNMP_ERR_NOERROR, shorter.run(do_vorHoSystemRole, MODE_SET_ACTION));
    EXPECT_EQ("Web", get(do_vorHoSystemRole)) << "no tail of the longer value survives";
    EXPECT_EQ(SNMP_ERR_NOERROR, shorter.run(do_vorHoSystemRole, MODE_SET_UNDO));
    EXPECT_STREQ("Web", get_system_role());
    EXPECT_EQ("", get(do_vorHoSystemRoleDetail)) << "the detail is a separate value";

    empty.text("");
    EXPECT_EQ(SNMP_ERR_NOERROR, empty.run(do_vorHoSystemRole, MODE_SET_RESERVE1));
    EXPECT_EQ(SNMP_ERR_NOERROR, empty.run(do_vorHoSystemRole, MODE_SET_ACTION));
    EXPECT_EQ("", get(do_vorHoSystemRole));
    EXPECT_EQ(SNMP_ERR_GENERR, empty.run(do_vorHoSystemRole, MODE_GETNEXT));
}

TEST_F(Role, LoadedValuesAreCutToTheLimit) {
    set_system_role(std::string(70, 'L').c_str(), 70);
    EXPECT_EQ(std::string(64, 'L'), get_system_role());
    set_system_role_detail(std::string(600, 'D').c_str(), 600);
    EXPECT_EQ(std::string(512, 'D'), get(do_vorHoSystemRoleDetail));
}

} // namespace
