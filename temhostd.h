// The daemon: start-up, main loop, shutdown, module initialisation and the
// refresh timers. Globals here are shared with the modules that read them.
#pragma once

#include <csignal>

extern volatile sig_atomic_t keep_running; // cleared by the SIGTERM/SIGINT handler
extern int do_fork;
extern int do_syslog;
extern int do_filelog;
extern int g_do_trap;       // 0 after -T: no traps are sent
extern char *pCommunityStr; // -c argument, or the built-in default
extern int alarm_handle;    // id of the general refresh alarm, 0 when none

extern const char *const agent;
#define TEMHOSTD_VERSION_MAJOR 2
#define TEMHOSTD_VERSION_MINOR 3
#define APPL_NAME "temhostd"

#define PID_FILE "/var/run/temhostd.pid"
#define PERSIST_DIR "/var/sma_snmp"
#define PERSIST_FILE PERSIST_DIR "/temhostd.conf"
#define PERSIST_SAVED_COPY PERSIST_DIR "/temhostd.conf.saf"
#define FILE_LOG_PATH "/var/log/snmpd.log"

int temhostd_main(int argc, char **argv);

void usage(const char *applName);
void PrintVersionInfo(void);
int isCurrentUserRoot(void);
void AssertSingleInstance(const char *pidFile);
int UnlinkPidfile(const char *pidFile);
void closeAgt(void);
void stop_server(int sig);

// Module initialisation and refresh scheduling. The refresh functions take
// the alarm callback's arguments (and ignore them) so that they can be
// registered as alarms directly.
void init_modules(void);
void refresh_data(unsigned int clientreg = 0, void *clientarg = nullptr);
void refresh_cpu_data(void);
