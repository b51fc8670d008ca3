// SPDX-License-Identifier: Apache-2.0
// The deferred trap send, with the library's send call replaced by a
// recorder; what reaches a manager is checked end to end.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/object_map.h"

namespace {

std::vector<std::string> g_sent; // "specific: last binding's text"

void record_trap(int, int specific, const oid *, int, netsnmp_variable_list *vars) {
    while (vars->next_variable)
        vars = vars->next_variable;
    g_sent.push_back(std::to_string(specific) + ": " +
                     std::string(reinterpret_cast<char *>(vars->val.string), vars->val_len));
}

// Fires the alarm armed by a send as the main loop would, 2 seconds on.
void fire(int id) {
    struct snmp_alarm *a = sa_find_next();
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->clientreg, static_cast<unsigned int>(id));
    EXPECT_EQ(a->t.tv_sec, 2);
    EXPECT_EQ(a->flags & SA_REPEAT, 0u) << "one-shot";
    trigger_immediate_trap_send_CB(a->clientreg, a->clientarg);
}

TEST(Traps, EachPendingSendOwnsItsTextAndIsReleased) {
    set_trap_sender(record_trap);
    set_trap_oids({enterprise_oid, OID_LENGTH(enterprise_oid), vorHoName_oid,
                   OID_LENGTH(vorHoName_oid), vorHoTrapFlags_oid, OID_LENGTH(vorHoTrapFlags_oid),
                   vorHoGenericData_oid, OID_LENGTH(vorHoGenericData_oid)});
    do_init();
    std::string *value = new std::string("disk replaced");
    const int first = trigger_immediate_trap_send(value->c_str(), TRAP_GENERIC_DATA_SET);
    const int second = trigger_immediate_trap_send("critical", TRAP_CRIT_DATA_SET);
    value->assign(40, 'X'); // the request's value is gone before the alarm fires
    delete value;
    fire(first);
    fire(second);
    EXPECT_EQ(g_sent, (std::vector<std::string>{"11003: disk replaced", "11014: critical"}));
    g_do_trap = 0; // -T: the send is released, nothing goes out
    fire(trigger_immediate_trap_send("quiet", TRAP_GENERIC_DATA_SET));
    EXPECT_EQ(g_sent.size(), 2u);
    set_trap_sender(nullptr);
    g_do_trap = 1;
    erase_sysstat_info();
    EXPECT_EQ(sa_find_next(), nullptr) << "every pending send was released";
}

} // namespace
