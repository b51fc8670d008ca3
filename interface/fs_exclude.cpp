// SPDX-License-Identifier: Apache-2.0
#include "interface/fs_exclude.h"

#include <cstdio>
#include <cstring>
#include <fnmatch.h>
#include <new>
#include <string>
#include <vector>

#include "interface/debug.h"
#include "interface/net_snmp.h"

#define FS_EXCLUDE_DEBUG "vorOrblFSinterface"

// A kernel file system type is a short word: letters, digits, '.', '_',
// '-' (fuse.sshfs). Anything else is a mistake, a glob meant for the path
// most of all, that would otherwise silently match nothing.
#define FS_TYPE_MAX 64
static const char kTypeChars[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";

static std::vector<std::string> s_types;
static std::vector<std::string> s_patterns;

// Reported with the file and line number the library is reading.
static void exclude_error(const char *token, const char *what, const std::string &word = "") {
    char msg[512];
    if (word.empty()) {
        snprintf(msg, sizeof(msg), "%s: %s", token, what);
    } else {
        snprintf(msg, sizeof(msg), "%s: %s \"%.300s\"", token, what, word.c_str());
    }
    config_perror(msg);
}

void parse_fsExcludeType(const char *token, char *line) {
    if (!token || !line) {
        return;
    }
    // The whole line is checked before any type is taken: a bad line adds
    // nothing.
    std::vector<std::string> types;
    const char *separators = ", \t\r\n";
    for (const char *at = line + strspn(line, separators); *at; at += strspn(at, separators)) {
        const size_t n = strcspn(at, separators);
        std::string type(at, n);
        if (type.find_first_not_of(kTypeChars) != std::string::npos) {
            return exclude_error(token, "not a file system type", type);
        }
        if (n > FS_TYPE_MAX) {
            return exclude_error(token, "file system type too long", type);
        }
        try {
            types.push_back(std::move(type));
        } catch (const std::bad_alloc &) {
            return exclude_error(token, "out of memory");
        }
        at += n;
    }
    if (types.empty()) {
        return exclude_error(token, "missing file system type");
    }
    try {
        s_types.insert(s_types.end(), types.begin(), types.end());
    } catch (const std::bad_alloc &) {
        return exclude_error(token, "out of memory");
    }
    VOR_DEBUG(FS_EXCLUDE_DEBUG, "excluding %zu file system types\n", types.size());
}

void parse_fsExcludePath(const char *token, char *line) {
    if (!token || !line) {
        return;
    }
    // One word, quoted when it holds blanks, as the library reads words.
    char pattern[4096], extra[4096];
    pattern[0] = extra[0] = '\0';
    char *rest = *line ? copy_nword(line, pattern, sizeof(pattern)) : nullptr;
    if (rest && *rest) {
        copy_nword(rest, extra, sizeof(extra));
    }
    if (!pattern[0]) {
        return exclude_error(token, "missing pattern");
    }
    if (extra[0]) {
        return exclude_error(token, "unexpected word (quote a pattern that holds blanks)", extra);
    }
    // A mount point begins with "/": a pattern that cannot is a mistake.
    if (!strchr("/*?[", pattern[0])) {
        return exclude_error(token, "pattern matches no mount point (they begin with /)", pattern);
    }
    try {
        s_patterns.emplace_back(pattern);
    } catch (const std::bad_alloc &) {
        return exclude_error(token, "out of memory");
    }
    VOR_DEBUG(FS_EXCLUDE_DEBUG, "excluding mount points %s\n", pattern);
}

void free_fsExcludeType(void) {
    s_types.clear();
}

void free_fsExcludePath(void) {
    s_patterns.clear();
}

void register_fs_exclude_directives(const char *app) {
    register_config_handler(app, FS_EXCLUDE_TYPE_TOKEN, parse_fsExcludeType, free_fsExcludeType,
                            FS_EXCLUDE_TYPE_HELP);
    register_config_handler(app, FS_EXCLUDE_PATH_TOKEN, parse_fsExcludePath, free_fsExcludePath,
                            FS_EXCLUDE_PATH_HELP);
}

bool fs_excluded(const char *fstype, const char *mount_point) {
    if (fstype) {
        for (const std::string &type : s_types) {
            if (type == fstype) {
                return true;
            }
        }
    }
    if (mount_point) {
        for (const std::string &pattern : s_patterns) {
            if (fnmatch(pattern.c_str(), mount_point, 0) == 0) {
                return true;
            }
        }
    }
    return false;
}
