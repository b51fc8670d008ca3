#include <climits>

#include <gtest/gtest.h>

#include "mib-extns/vorMeMibGroup.h"
#include "temhostd.h"
#include "tests/unit/agent_request.h"

namespace {

struct PollFrequency : ::testing::Test {
    void SetUp() override { g_osCommonPollFrequency = 0; }
    void TearDown() override {
        if (alarm_handle) {
            snmp_alarm_unregister(static_cast<unsigned>(alarm_handle));
        }
        alarm_handle = 0;
        g_osCommonPollFrequency = 0;
    }
    int reserve1(AgentRequest &r) { return r.run(do_vorMeOsCommonPollFreq, MODE_SET_RESERVE1); }
};

TEST_F(PollFrequency, PollingOffRefusesEverySetBeforeLookingAtType) {
    AgentRequest good, wrong_type;
    good.integer(60);
    wrong_type.text("60");
    EXPECT_EQ(SNMP_ERR_BADVALUE, reserve1(good));
    EXPECT_EQ(SNMP_ERR_BADVALUE, good.request.status);
    EXPECT_EQ(SNMP_ERR_BADVALUE, reserve1(wrong_type));
}

TEST_F(PollFrequency, PollingOnChecksTypeThenRange) {
    g_osCommonPollFrequency = 60;
    for (long ok : {5L, 900L}) {
        AgentRequest r;
        r.integer(ok);
        EXPECT_EQ(SNMP_ERR_NOERROR, reserve1(r)) << ok;
    }
    for (long bad : {4L, 901L, 0L, -1L}) {
        AgentRequest r;
        r.integer(bad);
        EXPECT_EQ(SNMP_ERR_BADVALUE, reserve1(r)) << bad;
    }
    AgentRequest s;
    s.text("30");
    EXPECT_EQ(SNMP_ERR_WRONGTYPE, reserve1(s));
    EXPECT_EQ(60, g_osCommonPollFrequency) << "a refused SET changes nothing";
}

TEST_F(PollFrequency, ActionReplacesTheRefreshAlarmAndUndoKeepsIt) {
    g_osCommonPollFrequency = 60;
    AgentRequest r;
    r.integer(30);
    EXPECT_EQ(SNMP_ERR_NOERROR, r.run(do_vorMeOsCommonPollFreq, MODE_SET_ACTION));
    const int first = alarm_handle;
    EXPECT_NE(0, first);
    EXPECT_EQ(30, g_osCommonPollFrequency);

    AgentRequest again;
    again.integer(45);
    again.run(do_vorMeOsCommonPollFreq, MODE_SET_ACTION);
    EXPECT_NE(first, alarm_handle);
    EXPECT_EQ(SNMP_ERR_NOERROR, again.run(do_vorMeOsCommonPollFreq, MODE_SET_UNDO));
    EXPECT_EQ(45, g_osCommonPollFrequency) << "UNDO restores nothing";

    AgentRequest get;
    EXPECT_EQ(SNMP_ERR_NOERROR, get.run(do_vorMeOsCommonPollFreq, MODE_GET));
    EXPECT_EQ(45, get.integer_value());
    EXPECT_EQ(SNMP_ERR_GENERR, get.run(do_vorMeOsCommonPollFreq, MODE_GETNEXT));
}

TEST(RevisionObjects, ServeConstantsAndRefuseOtherModes) {
    AgentRequest r;
    EXPECT_EQ(SNMP_ERR_NOERROR, r.run(get_vorMeMibRevMajor, MODE_GET));
    EXPECT_EQ(1, r.integer_value());
    EXPECT_EQ(SNMP_ERR_NOERROR, r.run(get_vorMeMibRevMinor, MODE_GET));
    EXPECT_EQ(26, r.integer_value());
    EXPECT_EQ(SNMP_ERR_GENERR, r.run(get_vorMeMibCondition, MODE_SET_ACTION));
}

TEST(RevisionObjects, ConditionAcceptsOnlyOneToFour) {
    set_mib_condition(3);
    EXPECT_EQ(3, g_MIbCond);
    set_mib_condition(5);
    set_mib_condition(0);
    EXPECT_EQ(3, g_MIbCond);
    set_mib_condition(2);
}

TEST(PollFrequencyToken, ParsesLikeAtoiWithoutRangeCheck) {
    struct {
        const char *value;
        int expected;
    } cases[] = {{"60", 60}, {"2000", 2000}, {"  30s", 30},           {"abc", 0},
                 {"", 60},   {"-5", 0},      {"99999999999", INT_MAX}};
    for (const auto &c : cases) {
        char buf[64];
        strcpy(buf, c.value);
        load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, buf);
        EXPECT_EQ(c.expected, g_osCommonPollFrequency) << "'" << c.value << "'";
    }
    load_Orbl_Host_OsComm_tokens(POLL_FREQ_TOKEN, nullptr);
    EXPECT_EQ(60, g_osCommonPollFrequency);
    char other[] = "7";
    load_Orbl_Host_OsComm_tokens("hostguid", other);
    EXPECT_EQ(60, g_osCommonPollFrequency) << "other tokens are not ours";
    g_osCommonPollFrequency = 0;
}

} // namespace
