#include <gtest/gtest.h>

#include "mib-extns/mib_registration.h"
#include "mib-extns/vorHoFileSysTable.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "mib-extns/vorMeMibGroup.h"

namespace {

// One walk at each listed moment; returns which of them rebuilt.
std::vector<bool> rebuilds(const std::vector<time_t> &walks, int interval) {
    time_t prev_req_time = 0;
    std::vector<bool> due;
    for (time_t now : walks)
        due.push_back(on_demand_rebuild_due(&prev_req_time, now, interval));
    return due;
}

TEST(OnDemandPacing, FirstWalkAlwaysThenAtMostOncePerIntervalFromTheLastRebuild) {
    const time_t t = 1700000000;
    EXPECT_EQ(rebuilds({t, t, t + 9, t + 10, t + 19, t + 20}, FS_ON_DEMAND_MIN_INTERVAL),
              (std::vector<bool>{true, false, false, true, false, true}));
    EXPECT_EQ(rebuilds({t, t + 14, t + 15, t + 29, t + 30}, SWVER_ON_DEMAND_MIN_INTERVAL),
              (std::vector<bool>{true, false, true, false, true}));
    // the clock going back rebuilds and restarts the pacing
    EXPECT_EQ(rebuilds({t, t - 3600, t - 3595, t - 3590}, 10),
              (std::vector<bool>{true, true, false, true}));
}

TEST(IntegerRangeCheck, WrongTypeBeforeRangeAndBothMarkTheRequest) {
    const struct {
        u_char type;
        long value;
        int expected;
    } cases[] = {
        {ASN_INTEGER, POLL_FREQ_MIN, SNMP_ERR_NOERROR},
        {ASN_INTEGER, POLL_FREQ_MAX, SNMP_ERR_NOERROR},
        {ASN_INTEGER, POLL_FREQ_MIN - 1, SNMP_ERR_BADVALUE},
        {ASN_INTEGER, POLL_FREQ_MAX + 1, SNMP_ERR_BADVALUE},
        {ASN_GAUGE, POLL_FREQ_MIN, SNMP_ERR_WRONGTYPE}, // a type is checked first,
        {ASN_OCTET_STR, 100000, SNMP_ERR_WRONGTYPE},    // whatever the value
    };
    for (const auto &c : cases) {
        long value = c.value;
        netsnmp_variable_list var{};
        var.type = c.type, var.val.integer = &value, var.val_len = sizeof(value);
        netsnmp_request_info request{};
        request.requestvb = &var;
        netsnmp_agent_request_info reqinfo{};
        reqinfo.mode = MODE_SET_RESERVE1;
        EXPECT_EQ(c.expected, check_integer_range(&reqinfo, &request, POLL_FREQ_MIN, POLL_FREQ_MAX,
                                                  "test", "out of range"))
            << c.value;
        EXPECT_EQ(c.expected, request.status) << "the refusal marks the request";
    }
}

} // namespace
