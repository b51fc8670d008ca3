#include <gtest/gtest.h>

#include "mib-extns/mib_registration.h"
#include "mib-extns/vorHoFileSysTable.h"
#include "mib-extns/vorMeMibGroup.h"

namespace {

// One walk at each listed moment; returns which of them rebuilt.
std::vector<bool> rebuilds(const std::vector<time_t> &walks, int interval) {
    time_t prev_req_time = 0;
    std::vector<bool> due;
    for (time_t now : walks) {
        due.push_back(on_demand_rebuild_due(&prev_req_time, now, interval));
    }
    return due;
}

TEST(OnDemandPacing, FirstWalkAlwaysThenAtMostOncePerInterval) {
    const time_t t = 1700000000;
    EXPECT_EQ(rebuilds({t, t, t + 9, t + 10, t + 19, t + 20}, FS_ON_DEMAND_MIN_INTERVAL),
              (std::vector<bool>{true, false, false, true, false, true}));
    // the software table's 15 s: the interval counts from the last rebuild
    EXPECT_EQ(rebuilds({t, t + 14, t + 15, t + 29, t + 30}, 15),
              (std::vector<bool>{true, false, true, false, true}));
}

TEST(OnDemandPacing, ClockGoingBackRebuildsAndRestartsThePacing) {
    const time_t t = 1700000000;
    EXPECT_EQ(rebuilds({t, t - 3600, t - 3595, t - 3590}, 10),
              (std::vector<bool>{true, true, false, true}));
}

struct SetRequest {
    netsnmp_variable_list var{};
    netsnmp_request_info request{};
    netsnmp_agent_request_info reqinfo{};
    long value = 0;

    SetRequest(u_char type, long v) : value(v) {
        var.type = type;
        var.val.integer = &value;
        var.val_len = sizeof(value);
        request.requestvb = &var;
        reqinfo.mode = MODE_SET_RESERVE1;
    }
};

TEST(IntegerRangeCheck, WrongTypeBeforeRangeAndBothMarkTheRequest) {
    struct Case {
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
    for (const Case &c : cases) {
        SetRequest r(c.type, c.value);
        EXPECT_EQ(c.expected, check_integer_range(&r.reqinfo, &r.request, POLL_FREQ_MIN,
                                                  POLL_FREQ_MAX, "test", "out of range"))
            << c.value;
        EXPECT_EQ(c.expected, r.request.status) << "the refusal marks the request";
    }
}

} // namespace
