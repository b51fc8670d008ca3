#include "interface/KYOrblHost_Trigger.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/debug.h"
#include "mib-extns/object_map.h"

// The bindings every trap carries, in this order.
static const oid *const sysName_oid = vorHoName_oid;
static const size_t sysName_oid_len = OID_LENGTH(vorHoName_oid);
static const oid *const trapFlg_oid = vorHoTrapFlags_oid;
static const size_t trapFlg_oid_len = OID_LENGTH(vorHoTrapFlags_oid);
static const oid *const trapDes_oid = vorHoGenericData_oid;
static const size_t trapDes_oid_len = OID_LENGTH(vorHoGenericData_oid);

static int s_trapNo = 0;
static trap_sender_fn s_sender = send_enterprise_trap_vars;

// One scheduled trap. It owns a copy of the text: the SET's value is gone
// long before the alarm fires.
struct pending_send {
    std::string text;
    int trapno;
};

void set_trap_sender(trap_sender_fn fn) {
    s_sender = fn ? fn : send_enterprise_trap_vars;
}

int trigger_immediate_trap_send(const char *trap_data, int trapno) {
    std::unique_ptr<pending_send> send(new (std::nothrow) pending_send);
    if (!send) {
        return 0;
    }
    try {
        send->text = trap_data ? trap_data : "";
    } catch (const std::bad_alloc &) {
        return 0; // no trap rather than an exception into the library
    }
    send->trapno = trapno;
    const unsigned int id =
        snmp_alarm_register(TRAP_SEND_DELAY_SECONDS, 0, trigger_immediate_trap_send_CB, send.get());
    if (id == 0) {
        return 0;
    }
    send.release(); // the alarm owns it now
    return static_cast<int>(id);
}

void trigger_immediate_trap_send_CB(unsigned int clientreg, void *clientarg) {
    VOR_DEBUG("vorvortrigger_immediate_trap_send_CB()", "<START>.\n");
    snmp_alarm_unregister(clientreg);
    std::unique_ptr<pending_send> send(static_cast<pending_send *>(clientarg));
    if (send) {
        s_trapNo = send->trapno;
        PostGenericTrap(send->text.c_str());
    }
    VOR_DEBUG("vorvortrigger_immediate_trap_send_CB()", "<END>.\n");
}

int PostGenericTrap(const char *trapDesc) {
    if (g_do_trap == 0) {
        VOR_DEBUG("vorevent_send_trap", "<Trap sending disabled.returning...>.\n");
        return 0;
    }
    netsnmp_variable_list *list = nullptr;
    if (!FillCommonInfo(list)) {
        snmp_free_varbind(list);
        return 0;
    }
    const char *desc = trapDesc ? trapDesc : "";
    snmp_varlist_add_variable(&list, trapDes_oid, trapDes_oid_len, ASN_OCTET_STR, desc,
                              strlen(desc));
    return PostTrap(list, s_trapNo);
}

void getsysname(char *hostname) {
    if (hostname[0] != '\0') {
        return;
    }
    if (gethostname(hostname, 256) != 0) {
        hostname[0] = '\0'; // tried again at the next trap
    }
    hostname[255] = '\0';
}

int FillCommonInfo(netsnmp_variable_list *&varlist) {
    static char hostname[256];
    VOR_DEBUG("vorFillCommonInfo", "<START>.\n");
    getsysname(hostname);
    const int32_t flags = get_trap_flags();
    snmp_varlist_add_variable(&varlist, sysName_oid, sysName_oid_len, ASN_OCTET_STR, hostname,
                              strlen(hostname));
    snmp_varlist_add_variable(&varlist, trapFlg_oid, trapFlg_oid_len, ASN_INTEGER, &flags,
                              sizeof(flags));
    VOR_DEBUG("vorFillCommonInfo", "<END>.\n");
    return 1;
}

int PostTrap(netsnmp_variable_list *varlist, int specific) {
    VOR_DEBUG("vorvorPostTrap", "<START>.\n");
    s_sender(SNMP_TRAP_ENTERPRISESPECIFIC, specific, enterprise_oid,
             static_cast<int>(OID_LENGTH(enterprise_oid)), varlist);
    snmp_free_varbind(varlist);
    VOR_DEBUG("vorvorPostTrap", "<END>.\n");
    return 1;
}
