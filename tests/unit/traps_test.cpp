// Trap composition and the deferred send, with the library's send call
// replaced by a recorder.
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/object_map.h"

namespace {

struct SentTrap {
    int generic;
    int specific;
    std::vector<oid> enterprise;
    std::vector<std::pair<std::vector<oid>, std::string>> bindings; // text octets, or INTEGER n
};
std::vector<SentTrap> g_sent;

void record_trap(int trap, int specific, const oid *enterprise, int enterprise_length,
                 netsnmp_variable_list *vars) {
    SentTrap t{trap, specific, std::vector<oid>(enterprise, enterprise + enterprise_length), {}};
    for (netsnmp_variable_list *v = vars; v; v = v->next_variable) {
        std::string value = v->type == ASN_INTEGER
                                ? "INTEGER " + std::to_string(*v->val.integer)
                                : std::string(reinterpret_cast<char *>(v->val.string), v->val_len);
        t.bindings.push_back({std::vector<oid>(v->name, v->name + v->name_length), value});
    }
    g_sent.push_back(t);
}

template <size_t N> std::vector<oid> oids(const oid (&a)[N]) {
    return std::vector<oid>(a, a + N);
}

// Fires the alarm armed by a send as the main loop would, 2 seconds on.
void fire(int id) {
    struct snmp_alarm *a = sa_find_next();
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->clientreg, static_cast<unsigned int>(id));
    EXPECT_EQ(a->t.tv_sec, TRAP_SEND_DELAY_SECONDS);
    EXPECT_EQ(a->flags & SA_REPEAT, 0u) << "one-shot";
    trigger_immediate_trap_send_CB(a->clientreg, a->clientarg);
}

struct Traps : ::testing::Test {
    void SetUp() override {
        g_sent.clear();
        set_trap_sender(record_trap);
        set_trap_oids({enterprise_oid, OID_LENGTH(enterprise_oid), vorHoName_oid,
                       OID_LENGTH(vorHoName_oid), vorHoTrapFlags_oid,
                       OID_LENGTH(vorHoTrapFlags_oid), vorHoGenericData_oid,
                       OID_LENGTH(vorHoGenericData_oid)});
        do_init();
    }
    void TearDown() override {
        set_trap_sender(nullptr);
        g_do_trap = 1;
        erase_sysstat_info();
        EXPECT_EQ(sa_find_next(), nullptr) << "every pending send was released";
    }
};

TEST_F(Traps, PendingSendOwnsItsTextAndComposesTheTrap) {
    // The request's value is gone before the alarm fires.
    std::string *value = new std::string("disk replaced");
    int id = trigger_immediate_trap_send(value->c_str(), TRAP_GENERIC_DATA_SET);
    ASSERT_NE(id, 0);
    value->assign(40, 'X');
    delete value;
    fire(id);

    ASSERT_EQ(g_sent.size(), 1u);
    const SentTrap &t = g_sent[0];
    EXPECT_EQ(t.generic, SNMP_TRAP_ENTERPRISESPECIFIC);
    EXPECT_EQ(t.specific, 11003);
    EXPECT_EQ(t.enterprise, (std::vector<oid>{1, 3, 6, 1, 4, 1, 32473}));
    ASSERT_EQ(t.bindings.size(), 3u);
    char host[256] = {0};
    gethostname(host, sizeof(host) - 1);
    EXPECT_EQ(t.bindings[0].first, oids(vorHoName_oid));
    EXPECT_EQ(t.bindings[0].second, host);
    EXPECT_EQ(t.bindings[1].first, oids(vorHoTrapFlags_oid));
    EXPECT_EQ(t.bindings[1].second, "INTEGER 0");
    EXPECT_EQ(t.bindings[2].first, oids(vorHoGenericData_oid));
    EXPECT_EQ(t.bindings[2].second, "disk replaced");
}

TEST_F(Traps, EachPendingSendKeepsItsNumberAndTextAndMinusTSendsNone) {
    int first = trigger_immediate_trap_send("generic", TRAP_GENERIC_DATA_SET);
    int second = trigger_immediate_trap_send("critical", TRAP_CRIT_DATA_SET);
    fire(first);
    fire(second);
    ASSERT_EQ(g_sent.size(), 2u);
    EXPECT_EQ(g_sent[0].specific, 11003);
    EXPECT_EQ(g_sent[0].bindings[2].second, "generic");
    EXPECT_EQ(g_sent[1].specific, 11014);
    EXPECT_EQ(g_sent[1].bindings[2].first, oids(vorHoGenericData_oid));
    EXPECT_EQ(g_sent[1].bindings[2].second, "critical");

    g_do_trap = 0;
    fire(trigger_immediate_trap_send("quiet", TRAP_GENERIC_DATA_SET));
    EXPECT_EQ(g_sent.size(), 2u);
}

} // namespace
