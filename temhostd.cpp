// SPDX-License-Identifier: Apache-2.0
// temhostd: host-information subagent. Start-up, command line, main loop,
// shutdown, module initialisation and the refresh timers.
#include "temhostd.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "daemon/master_link.h"
#include "daemon/platform_glue.h"
#include "daemon/run_marker.h"
#include "daemon/service_manager.h"
#include "interface/KYOrblHost_Trigger.h"
#include "interface/KyOrblHostCpu_interface.h"
#include "interface/KyOrblHostFs_interface.h"
#include "interface/KyOrblHostSysStatus_interface.h"
#include "interface/KyOrblNetSnmp_helpers.h"
#include "interface/kyfixtraps.h"
#include "interface/vorHoSwVer_interface.h"
#include "mib-extns/mib_registration.h"
#include "interface/net_snmp.h"
#include "mib-extns/vorHoCpuUtilTable.h"
#include "mib-extns/vorHoFileSysTable.h"
#include "mib-extns/vorHoInfo.h"
#include "mib-extns/vorHoMemoryGroup.h"
#include "mib-extns/vorHoSwVerTable.h"
#include "mib-extns/vorMeMibGroup.h"
#include "mib-extns/vorHoClientGroup.h"
#include "mib-extns/vorHoCriticalSoftwareUpdateData.h"
#include "mib-extns/vorHoHWInfoPlatform.h"
#include "mib-extns/vorHoMiscScalars.h"
#include "mib-extns/vorHoSwVerAgentsVer.h"
#include "mib-extns/vorHoSysStatusGroup.h"
#include "mib-extns/vorHoTrapInfoGroup.h"
#include "platform/getopt_reset.h"

#define TEMHOSTD_VERSION_MAJOR 2
#define TEMHOSTD_VERSION_MINOR 3

#define PID_FILE "/var/run/temhostd.pid"
#define PERSIST_DIR "/var/sma_snmp"
#define PERSIST_FILE PERSIST_DIR "/temhostd.conf"
#define PERSIST_SAVED_COPY PERSIST_DIR "/temhostd.conf.saf"
#define FILE_LOG_PATH "/var/log/snmpd.log"

static const RunFiles RUN_FILES = {PERSIST_DIR, PID_FILE, PERSIST_FILE, PERSIST_SAVED_COPY};

static volatile sig_atomic_t keep_running = 1; // cleared by the SIGTERM/SIGINT handler
static int do_fork = 0;
static int do_syslog = 0;
static int do_filelog = 0;
int g_do_trap = 1;
char *pCommunityStr = nullptr;
int alarm_handle = 0;

static const char *const agent = "KY Orbeline host agent[temhostd], Version ";

static const char DEFAULT_COMMUNITY[] = "quietharborlanes";
static const char NO_MASTER_MESSAGE[] =
    "Error: Could not initialize connection to Master SNMP daemon. \nCheck whether the master "
    "agent is running.\n";

// The pid file, open and write-locked while the daemon runs.
static int s_pid_fd = -1;

// A stop signal that lands after the loop has tested keep_running but
// before the library blocks in select would only be noticed at the next
// request or timer. The handler therefore also writes a byte into this
// pipe, whose read end is in the library's select set, so the wait ends.
static int s_wake_pipe[2] = {-1, -1};

// The daemon's option letters come first. The rest are the letters of the
// library's own parser that take an argument: they are collected with their
// argument for the library instead of ending the scan at the argument.
// '+' stops the scan at the first argument that is not an option.
static const char OPTION_LETTERS[] = "+vfslTc:dD:hVHY:m:M:O:I:P:r:t:Z:e:E:n:u:x:X:a:A:p:3:L:-:";

static void usage(const char *applName) {
    printf("Usage: %s [OPTION]...\n", applName);
    printf("\n");
    printf("Options:\n");
    printf("  -f         \t\tEnables forking\n");
    printf("  -s         \t\tEnables Sys Log\n");
    printf("  -l         \t\tEnables File Log\n");
    printf("  -T\t\t\tDisables Trap\n");
    printf("  -c community_str\tFor local Snmp GET\n");
    printf("  -v         \t\tPrints version information\n");
    printf("  -h         \t\tPrint this help and exit\n");
}

static void PrintVersionInfo(void) {
    printf("%s%d.%d\n", agent, TEMHOSTD_VERSION_MAJOR, TEMHOSTD_VERSION_MINOR);
    fflush(stdout);
}

static int isCurrentUserRoot(void) {
    return getuid() == 0 ? 1 : 0;
}

static void wake_main_loop(void) {
    if (s_wake_pipe[1] >= 0) {
        const int saved_errno = errno;
        ssize_t written = write(s_wake_pipe[1], "", 1);
        (void)written; // a full pipe already wakes the loop
        errno = saved_errno;
    }
}

static void stop_server(int) {
    keep_running = 0;
    wake_main_loop();
}

// SIGHUP: the loop reopens the log file of -l (logrotate has moved it away)
// and changes nothing else.
static volatile sig_atomic_t s_reopen_log = 0;

static void ask_log_reopen(int) {
    s_reopen_log = 1;
    wake_main_loop();
}

static void reopen_log_if_asked(void) {
    if (s_reopen_log) {
        s_reopen_log = 0;
        netsnmp_logging_restart();
    }
}

static bool file_exists(const char *path) {
    return access(path, F_OK) == 0;
}

static void AssertSingleInstance(const char *pidFile) {
    // The pid file is left behind by a run that did not stop cleanly, but
    // a reboot empties the run directory; the marker outlives that.
    const bool unclean_previous_stop = file_exists(pidFile) || run_marker_present(PERSIST_DIR);

    // The descriptor stays open until the run files go: it holds the lock.
    int fd = open(pidFile, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        fprintf(stderr, "ERROR: %s: cannot open pid file '%s'\n", APPL_NAME, pidFile);
        exit(3);
    }
    struct flock lock;
    memset(&lock, 0, sizeof(lock));
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    if (fcntl(fd, F_SETLK, &lock) < 0) {
        fprintf(stderr,
                "ERROR: %s: cannot lock pid file '%s'\nERROR: %s: another daemon instance may "
                "be running\n",
                APPL_NAME, pidFile, APPL_NAME);
        exit(3);
    }
    s_pid_fd = fd;
    // Only now, with the lock held, may the running content be replaced.
    char buf[12];
    int len = snprintf(buf, sizeof(buf), "%d\n", static_cast<int>(getpid()));
    if (ftruncate(fd, 0) == 0 && write(fd, buf, static_cast<size_t>(len)) < 0) {
        // Nothing to do: the lock, not the content, guards the instance.
    }

    if (unclean_previous_stop) {
        // The last run died after the library had emptied the persistent
        // file, or its final store failed: go back to the copy saved at
        // that run's start.
        roll_back_to_saved_copy(RUN_FILES);
    } else {
        if (file_exists(PERSIST_SAVED_COPY)) {
            unlink(PERSIST_SAVED_COPY);
        }
        if (link(PERSIST_FILE, PERSIST_SAVED_COPY) != 0) {
            // No persistent file yet (first start ever): nothing to save.
        }
    }
    mark_run_started(PERSIST_DIR);
}

static void closeAgt(void) {
    flush_pending_traps();
    erase_fs_container();
    cleanup_cpustat_chain();
    cleanup_swver_list();
}

// Hands one option that belongs to the library's parser to it. The
// library's parser scans its vector from the start and, when it reaches the
// end, initialises the library as a client application ("snmpapp"), which
// would leave the daemon's own initialisation without effect. So it gets the
// option followed by "-h" twice: the first "-h" either stops it or is taken
// as the argument of an option that wanted one, and the second stops it for
// certain, always before that initialisation. One option per call, so that
// a bad option cannot keep a later good one from taking effect.
static int hand_to_library_parser(const char *applName, const std::vector<std::string> &option) {
    std::vector<std::string> words;
    words.emplace_back(applName);
    words.insert(words.end(), option.begin(), option.end());
    words.emplace_back("-h");
    words.emplace_back("-h");
    std::vector<char *> vec;
    for (std::string &w : words) {
        vec.push_back(&w[0]); // the library may write into its arguments
    }
    vec.push_back(nullptr);

    platform::restart_getopt();

    const int saved_opterr = opterr;
    opterr = 0; // the daemon's scan has already reported unknown letters
    netsnmp_session session;
    int rc =
        snmp_parse_args(static_cast<int>(words.size()), vec.data(), &session, nullptr, nullptr);
    opterr = saved_opterr;
    return rc;
}

// The daemon's option scan. -v and -h, and the library's request to stop,
// end the process with status 0. Options for the library are collected
// during the scan and handed over after it: the library's parser runs its
// own getopt scan, which must not interleave with the daemon's.
static void scan_options(int argc, char **argv) {
    std::vector<std::vector<std::string>> library_options;
    int c;
    while ((c = getopt(argc, argv, OPTION_LETTERS)) != -1) {
        switch (c) {
        case 'v':
            PrintVersionInfo();
            exit(0);
        case 'h':
            usage(argv[0]);
            exit(0);
        case 'f':
            do_fork = 1;
            break;
        case 's':
            do_syslog = 1;
            break;
        case 'l':
            do_filelog = 1;
            break;
        case 'T':
            g_do_trap = 0;
            break;
        case 'c':
            pCommunityStr = optarg;
            break;
        case '?': {
            // An unknown letter goes to the library; a known letter that
            // lacks its argument has been reported by getopt already.
            const char *known = optopt ? strchr(OPTION_LETTERS + 1, optopt) : nullptr;
            if (!(known && known[1] == ':')) {
                library_options.push_back(
                    {std::string("-") + static_cast<char>(optopt ? optopt : '?')});
            }
            break;
        }
        default:
            library_options.push_back({std::string("-") + static_cast<char>(c)});
            if (optarg) {
                library_options.back().emplace_back(optarg);
            }
            break;
        }
    }
    for (const auto &option : library_options) {
        if (hand_to_library_parser(argv[0], option) == NETSNMP_PARSE_ARGS_SUCCESS_EXIT) {
            exit(0);
        }
    }
}

static void choose_log_destination(void) {
    static char logfile[1025];
    memset(logfile, 0, sizeof(logfile));
    if (do_syslog) {
        snmp_enable_calllog();
        snmp_enable_syslog_ident(APPL_NAME, LOG_DAEMON);
    } else if (do_filelog) {
        strncpy(logfile, FILE_LOG_PATH, sizeof(logfile) - 1);
        snmp_enable_filelog(logfile, 1);
    } else {
        snmp_enable_stderrlog();
    }
}

static void detach(void) {
    pid_t pid = fork();
    if (pid < 0) {
        snmp_log(LOG_ERR, "bad fork - %s\n", strerror(errno));
        _exit(1);
    }
    if (pid > 0) {
        _exit(0);
    }
    if (setsid() < 0) {
        snmp_log(LOG_ERR, "bad setsid - %s\n", strerror(errno));
        _exit(1);
    }
    int fd = open("/dev/null", O_RDWR);
    if (fd >= 0) {
        dup2(fd, 0);
        dup2(fd, 1);
        dup2(fd, 2);
        if (fd > 2) {
            close(fd);
        }
    }
}

static void drain_wake_pipe(int fd, void *) {
    char buf[64];
    while (read(fd, buf, sizeof(buf)) > 0) {
    }
}

// The stop signal has done its work once the loop has ended; the pipe goes
// before the library shuts down, so no descriptor outlives the run.
static void close_wake_pipe(void) {
    if (s_wake_pipe[0] >= 0) {
        unregister_readfd(s_wake_pipe[0]);
        close(s_wake_pipe[0]);
    }
    if (s_wake_pipe[1] >= 0) {
        const int fd = s_wake_pipe[1];
        s_wake_pipe[1] = -1; // a late signal then writes nothing
        close(fd);
    }
    s_wake_pipe[0] = -1;
}

// From the end of the option scan until the handlers are in place a stop
// (or HUP) signal is held pending instead of killing a daemon half started; once
// they are installed it is delivered and ends the run cleanly. The
// programs the daemon starts get an empty mask of their own.
static void hold_stop_signals(int how) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGHUP); // a log rotation during start-up must not kill it either
    sigprocmask(how, &stop, nullptr);
}

static void install_signal_handlers(void) {
    if (pipe2(s_wake_pipe, O_NONBLOCK | O_CLOEXEC) == 0) {
        register_readfd(s_wake_pipe[0], drain_wake_pipe, nullptr);
    }
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = stop_server;
    sigemptyset(&sa.sa_mask);
    // No SA_RESTART: the signal must interrupt the blocking wait of the loop.
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    sa.sa_handler = ask_log_reopen;
    sigaction(SIGHUP, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
    hold_stop_signals(SIG_UNBLOCK);
}

int temhostd_main(int argc, char **argv) {
    scan_options(argc, argv);
    hold_stop_signals(SIG_BLOCK);
    // The local status queries use -c when given, else their own default.
    if (pCommunityStr) {
        set_local_query_community(pCommunityStr);
    }
    if (!pCommunityStr) {
        pCommunityStr = const_cast<char *>(DEFAULT_COMMUNITY);
    }
    choose_log_destination();

    if (!isCurrentUserRoot()) {
        snmp_log(LOG_ERR,
                 "\nERROR: Unable to load KY Orbeline Host agent daemon.\n[%s] requires root "
                 "privilages. Login as root and try again!\n",
                 argv[0]);
        exit(2);
    }
    snmp_log(LOG_INFO, "Starting %s%d.%d\n", agent, TEMHOSTD_VERSION_MAJOR, TEMHOSTD_VERSION_MINOR);

    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    // The saved copy covers the persistent file only if the library keeps
    // it in the same directory.
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, PERSIST_DIR);
    // Every OID the daemon uses is numeric: loading the host's MIB files
    // would only cost start-up time and memory. An operator's MIBS (or -m)
    // still wins.
    setenv("MIBS", "", 0);

    if (do_fork) {
        detach();
    }
    AssertSingleInstance(PID_FILE);
    ky_fix_subagent_traps();

    watch_master_link();
    if (init_agent(APPL_NAME) != 0) {
        snmp_log(LOG_ERR, "%s", NO_MASTER_MESSAGE);
        exit(1);
    }
    after_init_agent();
    init_modules();
    keep_running = 1;
    // The library opens the AgentX session while it reads the configuration,
    // so only after init_snmp is it known whether a master answered.
    init_snmp(APPL_NAME);
    filter_connection_chatter(); // destinations the configuration may have added
    if (!master_session_is_open()) {
        snmp_log(LOG_ERR, "%s", NO_MASTER_MESSAGE);
        exit(1);
    }
    snmp_log(LOG_INFO, "%s%d.%d [Ready]\n", agent, TEMHOSTD_VERSION_MAJOR, TEMHOSTD_VERSION_MINOR);

    attach_platform();
    refresh_data();
    refresh_cpu_data();
    install_signal_handlers();
    tell_service_manager_ready();

    while (keep_running) {
        agent_check_and_process(1);
        netsnmp_check_outstanding_agent_requests();
        reopen_log_if_asked();
    }
    tell_service_manager_stopping();
    close_wake_pipe();
    detach_platform();

    closeAgt();
    snmp_log(LOG_INFO, "Stopping %s%d.%d\n", agent, TEMHOSTD_VERSION_MAJOR, TEMHOSTD_VERSION_MINOR);
    snmp_shutdown(APPL_NAME);
    // Last: the final store above reads the host GUID from the record.
    erase_sysstat_info();
    end_run(RUN_FILES, lines_of_last_store(), &s_pid_fd);
    // The stop signal interrupts the loop's wait, which then reports -1
    // (status 255). When it lands between two waits the wake pipe ends the
    // next one with an event count instead; a stop always reports -1, so
    // that a clean stop never reads as the start-up failure status 1.
    return -1;
}

// ---------------------------------------------------------------------------
// Module initialisation and refresh scheduling

// Every configuration token must be registered before init_snmp reads the
// configuration, and the library calls store callbacks in registration
// order: the order here matters.
void init_modules(void) {
    init_vorHoFileSysTable();
    init_vorHoMemoryGroup();
    init_vorHoInfo();
    init_vorHoCpuUtilTable();
    init_vorHoSwVerTable();
    init_vorHoTrapInfoGroup();
    init_vorHoClientGroup();
    init_vorHoMiscScalars();
    init_vorMeMibGroup();
    init_vorHoSwVerAgentsVer();
    init_vorHoHWInfoPlatform();
    init_vorHoSysStatusGroup();
    init_vorHoCriticalSoftwareUpdateData();
}

void refresh_data(unsigned int, void *) {
    static int b_AlarmSet = 0;
    VOR_DEBUG("vorHostd", "refreshing data\n");
    refresh_flist_CB();
    refresh_SwverLoad_CB();
    refresh_misc();
    if (g_osCommonPollFrequency != 0 && !b_AlarmSet) {
        arm_refresh_alarm(g_osCommonPollFrequency);
        b_AlarmSet = 1;
    }
}

void arm_refresh_alarm(int period) {
    if (alarm_handle != 0) {
        snmp_alarm_unregister(static_cast<unsigned int>(alarm_handle));
    }
    alarm_handle = static_cast<int>(
        snmp_alarm_register(static_cast<unsigned int>(period), SA_REPEAT, refresh_data, nullptr));
}

void refresh_cpu_data(void) {
    VOR_DEBUG("vorHostd", "registering cpu data refresh\n");
    // Lives until the process ends; the first sample is taken when it
    // first fires.
    snmp_alarm_register(static_cast<unsigned int>(cpu_poll_time), SA_REPEAT, refresh_cpuLoad_alarm,
                        nullptr);
}
