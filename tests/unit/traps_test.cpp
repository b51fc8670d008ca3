// Trap composition and the deferred send, with the library's send call
// replaced by a recorder.
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/object_map.h"

namespace {

struct SentTrap {
    int generic, specific;
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

TEST(Traps, EachPendingSendOwnsItsTextAndComposesItsTrap) {
    g_sent.clear();
    set_trap_sender(record_trap);
    do_init();
    std::string *value = new std::string("disk replaced");
    const int first = trigger_immediate_trap_send(value->c_str(), TRAP_GENERIC_DATA_SET);
    const int second = trigger_immediate_trap_send("critical", TRAP_CRIT_DATA_SET);
    ASSERT_NE(first, 0);
    value->assign(40, 'X'); // the request's value is gone before the alarm fires
    delete value;
    fire(first);
    fire(second);

    ASSERT_EQ(g_sent.size(), 2u);
    const SentTrap &t = g_sent[0];
    EXPECT_EQ(t.generic, SNMP_TRAP_ENTERPRISESPECIFIC);
    EXPECT_EQ(t.specific, 11003);
    EXPECT_EQ(t.enterprise, (std::vector<oid>{1, 3, 6, 1, 4, 1, 32473}));
    char host[256] = {0};
    gethostname(host, sizeof(host) - 1);
    EXPECT_EQ(t.bindings, (decltype(t.bindings){{oids(vorHoName_oid), host},
                                                {oids(vorHoTrapFlags_oid), "INTEGER 0"},
                                                {oids(vorHoGenericData_oid), "disk replaced"}}));
    EXPECT_EQ(g_sent[1].specific, 11014);
    ASSERT_EQ(g_sent[1].bindings.size(), 3u);
    EXPECT_EQ(g_sent[1].bindings[2],
              make_pair(oids(vorHoGenericData_oid), std::string("critical")));

    g_do_trap = 0; // -T: the send is released, nothing goes out
    fire(trigger_immediate_trap_send("quiet", TRAP_GENERIC_DATA_SET));
    EXPECT_EQ(g_sent.size(), 2u);
    set_trap_sender(nullptr);
    g_do_trap = 1;
    erase_sysstat_info();
    EXPECT_EQ(sa_find_next(), nullptr) << "every pending send was released";
}

} // namespace
