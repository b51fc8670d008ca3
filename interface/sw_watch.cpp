// SPDX-License-Identifier: Apache-2.0
#include "interface/sw_watch.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <strings.h>
#include <vector>

#include "interface/debug.h"
#include "interface/net_snmp.h"
#include "interface/sw_checks.h"
#include "interface/swver_codes.h"

#define SWVER_TOKEN "vorOrblFSinterface"

static std::vector<WatchLine> s_watch;

const WatchLine *sw_watch_for(const char *name) {
    for (const WatchLine &w : s_watch) {
        if (strncmp(name, w.prefix.c_str(), w.prefix.size()) == 0) {
            return &w;
        }
    }
    return nullptr;
}

bool sw_watching(void) {
    return !s_watch.empty();
}

int sw_watch_status(const WatchLine &watch) {
    return watch.check == CHECK_NONE ? SWVER_STATUS_UNKNOWN
                                     : sw_check(watch.check, watch.exe.c_str());
}

void sw_watch_start_checks(SwCheckRefresh &refresh) {
    for (const WatchLine &watch : s_watch) {
        if (watch.check != CHECK_NONE) {
            refresh.start_ahead(watch.check);
        }
    }
}

static int kind_from(const char *word) {
    static const struct {
        const char *name;
        int type;
    } names[] = {{"driver", SWVER_TYPE_DRIVER},
                 {"agent", SWVER_TYPE_AGENT},
                 {"utility", SWVER_TYPE_UTILITY},
                 {"application", SWVER_TYPE_APPLICATION}};
    if (word[0] >= '1' && word[0] <= '5' && word[1] == '\0') {
        return word[0] - '0';
    }
    for (const auto &n : names) {
        if (strcasecmp(word, n.name) == 0) {
            return n.type;
        }
    }
    return 0;
}

// A unit as systemd names it: the characters of a unit name, a type
// suffix (.service when none is given), 255 characters at most, a template
// only with its instance. Empty when it cannot be one; the name goes into
// a command line as one single-quoted word, so no quote may pass.
static std::string unit_name(const char *word) {
    static const char *const suffixes[] = {".service",   ".socket", ".device", ".mount",
                                           ".automount", ".swap",   ".target", ".path",
                                           ".timer",     ".slice",  ".scope"};
    std::string unit = word;
    if (unit.empty() || unit[0] == '.' || unit[0] == '@' ||
        unit.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                               "0123456789:-_.\\@") != std::string::npos) {
        return "";
    }
    bool typed = false;
    for (const char *suffix : suffixes) {
        const size_t n = strlen(suffix);
        typed = typed || (unit.size() > n && unit.compare(unit.size() - n, n, suffix) == 0);
    }
    if (!typed) {
        unit += ".service";
    }
    const size_t at = unit.find('@');
    if (unit.size() > 255 ||
        (at != std::string::npos &&
         (unit.find('@', at + 1) != std::string::npos || unit[at + 1] == '.'))) {
        return "";
    }
    return unit;
}

// The next word of the line (quotes as the library reads them), or an
// empty word at its end.
static char *next_word(char *from, char (&word)[SWVER_VALUE_BUF]) {
    word[0] = '\0';
    return from && *from ? copy_nword(from, word, sizeof(word)) : nullptr;
}

// Reported with the file and line number the library is reading.
static void watch_error(const char *token, const char *line, const char *what,
                        const char *word = nullptr, const char *hint = "") {
    char msg[SWVER_VALUE_BUF * 3];
    if (word) {
        snprintf(msg, sizeof(msg), "%s %s: %s \"%s\"%s", token, line, what, word, hint);
    } else {
        snprintf(msg, sizeof(msg), "%s %s: %s", token, line, what);
    }
    config_perror(msg);
}

void parse_softwareWatch(const char *token, char *line) {
    if (!token || !line) {
        return;
    }
    char kind[SWVER_VALUE_BUF], prefix[SWVER_VALUE_BUF], check[SWVER_VALUE_BUF],
        exe[SWVER_VALUE_BUF], extra[SWVER_VALUE_BUF];
    char *rest = next_word(line, kind);
    rest = next_word(rest, prefix);
    rest = next_word(rest, check);
    rest = next_word(rest, exe);
    next_word(rest, extra);
    const int type = kind_from(kind);
    if (type == 0) {
        return watch_error(token, line, "unknown kind", kind,
                           " (1 to 5, driver, agent, utility or application)");
    }
    if (!prefix[0]) {
        return watch_error(token, line, "missing package prefix");
    }
    if (strlen(prefix) > SWVER_NAME_MAX) {
        return watch_error(token, line, "package prefix longer than a package name");
    }
    int how = CHECK_NONE;
    if (strcmp(check, "process") == 0) {
        how = CHECK_PROCESS_NAME;
    } else if (strcmp(check, "module") == 0) {
        how = CHECK_MODULE;
    } else if (strcmp(check, "unit") == 0) {
        how = CHECK_UNIT;
    } else if (check[0]) {
        return watch_error(token, line, "unknown check", check,
                           " (process NAME, module NAME or unit UNIT)");
    }
    if (how != CHECK_NONE && !exe[0]) {
        return watch_error(token, line, "missing name after", check);
    }
    if (extra[0]) {
        return watch_error(token, line, "unexpected word", extra);
    }
    try {
        std::string name = exe;
        if (how == CHECK_UNIT) {
            name = unit_name(exe);
            if (name.empty()) {
                return watch_error(token, line, "not a unit name", exe,
                                   " (as systemd names it: nginx.service, getty@tty1.service)");
            }
            add_watched_unit(name);
        }
        s_watch.push_back(WatchLine{type, how, prefix, name});
    } catch (const std::bad_alloc &) {
        return watch_error(token, line, "out of memory");
    }
    VOR_DEBUG(SWVER_TOKEN, "watching packages %s (kind %d)\n", prefix, type);
}

void free_softwareWatch(void) {
    s_watch.clear();
    clear_watched_units();
}
