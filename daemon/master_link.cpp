// SPDX-License-Identifier: Apache-2.0
#include "daemon/master_link.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "interface/net_snmp.h"

// Set once the AgentX session with the master agent has opened.
static bool s_master_session_open = false;

// The library notices at once when the master closes the AgentX socket
// (it stops or dies: end of file in the loop's select) and then retries the
// connection every RECONNECT_SECONDS. Its ping is needed only for a master
// that hangs with the socket open, so while connected it runs every
// PING_SECONDS: each ping is an AgentX round trip that wakes both agents.
// Both periods come from one library setting, read when the ping is armed
// (just after the session opens) and when a loss is noticed.
static const int RECONNECT_SECONDS = 1;
static const int PING_SECONDS = 30;

static void set_agentx_interval(int seconds) {
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, seconds);
}

static void back_to_reconnect_interval(unsigned int, void *) {
    set_agentx_interval(RECONNECT_SECONDS);
}

static int master_session_opened(int, int, void *, void *) {
    s_master_session_open = true;
    // The ping the library arms next takes the long period; the loop's
    // next round of alarms puts the short one back for a later loss.
    set_agentx_interval(PING_SECONDS);
    struct timeval soon = {0, 1000};
    snmp_alarm_register_hr(soon, 0, back_to_reconnect_interval, nullptr);
    return SNMPERR_SUCCESS;
}

// While the master is away the library would warn at every reconnection
// attempt. Instead one line when the session closes and one when a new one
// opens, saying how long the subtree was gone.
static bool s_master_away = false;
static struct timespec s_master_lost_at;

static int master_session_closed(int, int, void *, void *) {
    if (!s_master_away) {
        s_master_away = true;
        clock_gettime(CLOCK_MONOTONIC, &s_master_lost_at);
        snmp_log(LOG_WARNING, "Lost the AgentX connection to the master agent; reconnecting "
                              "without further messages\n");
    }
    return SNMPERR_SUCCESS;
}

static int master_session_back(int, int, void *, void *) {
    if (s_master_away) {
        s_master_away = false;
        struct timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const double away = static_cast<double>(now.tv_sec - s_master_lost_at.tv_sec) +
                            static_cast<double>(now.tv_nsec - s_master_lost_at.tv_nsec) / 1e9;
        snmp_log(LOG_INFO, "AgentX connection to the master agent is back after %.1f s away\n",
                 away);
    }
    return SNMPERR_SUCCESS;
}

// The library also logs each loss and return itself, with no switch to turn
// that off; those lines are dropped here, so the two above are the only ones.
static bool is_library_connection_chatter(const char *line) {
    static const char *const chatter[] = {"AgentX master disconnected us",
                                          "AgentX master agent failed to respond to ping",
                                          "AgentX subagent connected"};
    for (const char *c : chatter) {
        if (line && strstr(line, c)) {
            return true;
        }
    }
    return false;
}

struct WrappedLogHandler {
    netsnmp_log_handler *logh;
    NetsnmpLogHandler *original;
};
static std::vector<WrappedLogHandler> s_wrapped_log_handlers;

static int filtered_log_handler(netsnmp_log_handler *logh, int pri, const char *line) {
    if (is_library_connection_chatter(line)) {
        return 1;
    }
    for (const WrappedLogHandler &w : s_wrapped_log_handlers) {
        if (w.logh == logh) {
            return w.original(logh, pri, line);
        }
    }
    return 0;
}

// Puts the filter in front of every log destination registered so far;
// handlers already wrapped are left as they are.
void filter_connection_chatter(void) {
    for (netsnmp_log_handler *logh = get_logh_head(); logh; logh = logh->next) {
        if (logh->handler && logh->handler != filtered_log_handler) {
            // A destination removed earlier may have left its address behind.
            for (WrappedLogHandler &w : s_wrapped_log_handlers) {
                if (w.logh == logh) {
                    w.original = logh->handler;
                }
            }
            if (std::none_of(s_wrapped_log_handlers.begin(), s_wrapped_log_handlers.end(),
                             [logh](const WrappedLogHandler &w) { return w.logh == logh; })) {
                s_wrapped_log_handlers.push_back({logh, logh->handler});
            }
            logh->handler = filtered_log_handler;
        }
    }
}

void watch_master_link(void) {
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                           master_session_opened, nullptr);
    filter_connection_chatter();
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
                           master_session_closed, nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                           master_session_back, nullptr);
}

void after_init_agent(void) {
    // Reconnect on our own when the master agent restarts while we serve:
    // the objects are away from managers for at most about a second after
    // the master is back. Set after init_agent, which puts in its own
    // default of 15 seconds.
    set_agentx_interval(RECONNECT_SECONDS);
    // The library's warning at every reconnection attempt is off: a missing
    // master is reported by this file's own two lines.
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS, 1);
}

bool master_session_is_open(void) {
    return s_master_session_open;
}
