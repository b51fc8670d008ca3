// SPDX-License-Identifier: Apache-2.0
#include "interface/KYOrblHost_Trigger.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/debug.h"

// What every trap is sent under and carries; set by the MIB layer.
static TrapOids s_oids = {};

void set_trap_oids(const TrapOids &oids) {
    s_oids = oids;
}

static int s_trapNo = 0;
static trap_sender_fn s_sender = send_enterprise_trap_vars;

// One scheduled trap. It owns a copy of the text: the SET's value is gone
// long before the alarm fires. Pending sends are linked so that a stop can
// still send them rather than drop them.
struct pending_send {
    std::string text;
    int trapno = 0;
    unsigned int alarm = 0;
    pending_send *prev = nullptr;
    pending_send *next = nullptr;
};
static pending_send *s_pending = nullptr;

static void unlink_pending(pending_send *send) {
    (send->prev ? send->prev->next : s_pending) = send->next;
    if (send->next) {
        send->next->prev = send->prev;
    }
}

static void send_now(std::unique_ptr<pending_send> send) {
    s_trapNo = send->trapno;
    PostGenericTrap(send->text.c_str());
}

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
    send->alarm =
        snmp_alarm_register(TRAP_SEND_DELAY_SECONDS, 0, trigger_immediate_trap_send_CB, send.get());
    if (send->alarm == 0) {
        return 0;
    }
    send->next = s_pending;
    if (s_pending) {
        s_pending->prev = send.get();
    }
    s_pending = send.release(); // the pending list owns it now
    return static_cast<int>(s_pending->alarm);
}

void trigger_immediate_trap_send_CB(unsigned int clientreg, void *clientarg) {
    VOR_DEBUG("vorvortrigger_immediate_trap_send_CB()", "<START>.\n");
    snmp_alarm_unregister(clientreg);
    if (auto *send = static_cast<pending_send *>(clientarg)) {
        unlink_pending(send);
        send_now(std::unique_ptr<pending_send>(send));
    }
    VOR_DEBUG("vorvortrigger_immediate_trap_send_CB()", "<END>.\n");
}

void flush_pending_traps(void) {
    // Oldest first, as their alarms would have fired.
    pending_send *oldest = s_pending;
    while (oldest && oldest->next) {
        oldest = oldest->next;
    }
    while (oldest) {
        pending_send *newer = oldest->prev;
        snmp_alarm_unregister(oldest->alarm);
        unlink_pending(oldest);
        send_now(std::unique_ptr<pending_send>(oldest));
        oldest = newer;
    }
}

int PostGenericTrap(const char *trapDesc) {
    if (g_do_trap == 0) {
        VOR_DEBUG("vorevent_send_trap", "<Trap sending disabled.returning...>.\n");
        return 0;
    }
    if (!s_oids.enterprise) {
        return 0; // nothing to send under yet
    }
    netsnmp_variable_list *list = nullptr;
    if (!FillCommonInfo(list)) {
        snmp_free_varbind(list);
        return 0;
    }
    const char *desc = trapDesc ? trapDesc : "";
    snmp_varlist_add_variable(&list, s_oids.text, s_oids.text_len, ASN_OCTET_STR, desc,
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
    snmp_varlist_add_variable(&varlist, s_oids.name, s_oids.name_len, ASN_OCTET_STR, hostname,
                              strlen(hostname));
    snmp_varlist_add_variable(&varlist, s_oids.flags, s_oids.flags_len, ASN_INTEGER, &flags,
                              sizeof(flags));
    VOR_DEBUG("vorFillCommonInfo", "<END>.\n");
    return 1;
}

int PostTrap(netsnmp_variable_list *varlist, int specific) {
    VOR_DEBUG("vorvorPostTrap", "<START>.\n");
    s_sender(SNMP_TRAP_ENTERPRISESPECIFIC, specific, s_oids.enterprise,
             static_cast<int>(s_oids.enterprise_len), varlist);
    snmp_free_varbind(varlist);
    VOR_DEBUG("vorvorPostTrap", "<END>.\n");
    return 1;
}
