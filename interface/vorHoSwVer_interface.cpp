// SPDX-License-Identifier: Apache-2.0
#include "interface/vorHoSwVer_interface.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <strings.h>

#include "interface/debug.h"
#include "interface/row_index.h"
#include "platform/commands.h"
#include "platform/popen_stream.h"

#define SWVER_TOKEN "vorOrblFSinterface"

// Buffers of the listing read: a first line of up to 255 characters, a
// version line of up to 79; the check commands' lines are read in pieces.
#define PKG_LINE_BUF 256
#define PKG_VERSION_LINE_BUF 80
#define CHECK_LINE_BUF 256

vorHo_Swver_t *swVerList = nullptr;
int g_NextIndex = 0;
altered_swver_entry *alterList = nullptr;
int alt_index = 0;

// The listing's read end while a refresh reads it.
static FILE *fp_pkglist = nullptr;

// Package filters: the first row that prefixes the name (case-sensitive),
// filter by filter in this order, gives the kind.
static const char *const driver_filter[] = {"KYQtarn", "VORlynx3", "e1000",
                                            "bge",     "KYQmerl",  "e1000"};
static const char *const agent_filter[] = {"KYQorblAgt", "KYQtem", "KYQBramAgt", "KYQcoveAgt",
                                           "KYQfenAgt"};
static const char *const app_filter[] = {"ky", "net-snmp", "KYQwisp"};
static const char *const util_filter[] = {"KYQsorrel", "KYQvane"};
// Drivers that run as a daemon rather than as a kernel module.
static const char *const user_mode_driver_filter[] = {"KYQtarn"};

// Package to driver module or daemon. "KYQCoveAgt" and "KYQFENAgt" are
// spelt differently from the agent filter, so those agents, as installed,
// find no daemon here and read as state unknown.
const pkg_exe_name_pair_t vorPkgs[10] = {
    {"KYQtarn", "tarnd"},        {"VORlynx3", "vorlynx3"},   {"KYQorblAgt", "temhostd"},
    {"KYQBramAgt", "kyqbramd"},  {"KYQCoveAgt", "kyqcoved"}, {"KYQFENAgt", "kyqfend"},
    {"KYQtem", "temhostd"},      {"KYQmerl", "vorpeb"},      {"KYQwisp", "kywispd"},
    {"KYQsorrel", "kyqsorreld"},
};

static bool has_prefix(const char *name, const char *prefix) {
    return strncmp(name, prefix, strlen(prefix)) == 0;
}

template <size_t N> static bool matches_row(const char *name, const char *const (&filter)[N]) {
    for (const char *row : filter) {
        if (has_prefix(name, row)) {
            return true;
        }
    }
    return false;
}

int is_eligible_pkg(const char *name) {
    if (!name) {
        return 0;
    }
    if (matches_row(name, driver_filter)) {
        return SWVER_TYPE_DRIVER;
    }
    if (matches_row(name, agent_filter)) {
        return SWVER_TYPE_AGENT;
    }
    if (matches_row(name, app_filter)) {
        return SWVER_TYPE_APPLICATION;
    }
    if (matches_row(name, util_filter)) {
        return SWVER_TYPE_UTILITY;
    }
    return 0;
}

int is_user_mode_drv(const char *name) {
    return name && matches_row(name, user_mode_driver_filter) ? 1 : 0;
}

const char *get_exe_name(const char *pkgName) {
    if (!pkgName) {
        return nullptr;
    }
    for (const pkg_exe_name_pair_t &pair : vorPkgs) {
        if (has_prefix(pkgName, pair.pkgName)) {
            return pair.exeName;
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------------------
// State checks. A package's daemon or driver module is looked for in the
// output of "ps -aef" or "modinfo -w", as the lines that "| grep NAME" (and,
// for processes, "| grep -v grep") would keep. Each list is taken once per
// refresh, however many rows ask: one command instead of one pipeline per
// row.

enum { CHECK_NONE, CHECK_PROCESS, CHECK_MODULE };

// Reads a started command's whole output, one string per line, and closes it.
static bool read_output(platform::PopenStream &out, std::vector<std::string> *lines) {
    if (!out.ok()) {
        return false;
    }
    std::string line;
    char chunk[CHECK_LINE_BUF];
    while (out.read_line(chunk, sizeof(chunk))) {
        line += chunk;
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
            lines->push_back(std::move(line));
            line.clear();
        }
    }
    if (!line.empty()) {
        lines->push_back(std::move(line));
    }
    out.close();
    return true;
}

static bool run_through_shell(const char *command, std::vector<std::string> *lines) {
    platform::PopenStream out(command);
    return read_output(out, lines);
}

static swver_command_fn s_run_command = run_through_shell;

void set_swver_command_runner(swver_command_fn run) {
    s_run_command = run ? run : run_through_shell;
}

namespace {

// One command's answer: whether it ran, and its lines.
struct CommandOutput {
    bool ran = false;
    std::vector<std::string> lines;
    std::unique_ptr<platform::PopenStream> ahead; // started, not read yet
};

// The outputs taken during the current refresh, by command. Outside a
// refresh nothing is kept and every check runs its command.
struct CheckMemo {
    bool on = false;
    std::map<std::string, CommandOutput> outputs;
};
CheckMemo s_memo;

// Keeps the outputs for one refresh and forgets them at its end.
struct MemoScope {
    MemoScope() {
        s_memo.outputs.clear();
        s_memo.on = true;
    }
    ~MemoScope() {
        s_memo.on = false;
        s_memo.outputs.clear();
    }
    MemoScope(const MemoScope &) = delete;
    MemoScope &operator=(const MemoScope &) = delete;
};

} // namespace

static int look_in(const CommandOutput &out, int check, const char *exe) {
    if (!out.ran) {
        return SWVER_STATUS_UNKNOWN;
    }
    for (const std::string &line : out.lines) {
        if (strstr(line.c_str(), exe) &&
            (check != CHECK_PROCESS || !strstr(line.c_str(), "grep"))) {
            return SWVER_STATUS_RUNNING;
        }
    }
    return SWVER_STATUS_STOPPED;
}

// The checks run inside the library's callbacks: memory running out while
// a list is held reads as "cannot tell".
template <typename F> static int no_throw(int on_failure, F &&body) noexcept {
    try {
        return body();
    } catch (...) {
        return on_failure;
    }
}

static std::string list_command(int check) {
    return check == CHECK_MODULE ? std::string(platform::modinfo_path()) + " -w"
                                 : std::string(platform::ps_path()) + " -aef";
}

// 2 when exe is in the process (or module) list, 3 when not, 1 when the
// list cannot be had.
static int look_for(int check, const char *exe) {
    return no_throw(SWVER_STATUS_UNKNOWN, [&] {
        std::string command = list_command(check);
        if (s_memo.on) {
            auto at = s_memo.outputs.find(command);
            if (at == s_memo.outputs.end()) {
                CommandOutput out;
                out.ran = s_run_command(command.c_str(), &out.lines);
                at = s_memo.outputs.emplace(std::move(command), std::move(out)).first;
            } else if (at->second.ahead) {
                at->second.ran = read_output(*at->second.ahead, &at->second.lines);
                at->second.ahead.reset();
            }
            return look_in(at->second, check, exe);
        }
        CommandOutput out;
        out.ran = s_run_command(command.c_str(), &out.lines);
        return look_in(out, check, exe);
    });
}

// Starts a list command that the watch list will ask for before the package
// listing, so that both run at once; its output is read at the first check.
// A test's runner answers at once and is left to do so.
static void start_ahead(int check) {
    if (!s_memo.on || s_run_command != run_through_shell) {
        return;
    }
    no_throw(0, [&] {
        std::string command = list_command(check);
        if (s_memo.outputs.count(command) == 0) {
            CommandOutput out;
            out.ahead.reset(new platform::PopenStream(command.c_str()));
            s_memo.outputs.emplace(std::move(command), std::move(out));
        }
        return 0;
    });
}

int IsProcessRunning(const char *pkgname) {
    const char *exe = get_exe_name(pkgname);
    if (!exe) {
        return SWVER_STATUS_UNKNOWN;
    }
    return look_for(CHECK_PROCESS, exe);
}

int IsDriverLoaded(const char *pkgname) {
    const char *exe = get_exe_name(pkgname);
    if (!exe) {
        return SWVER_STATUS_UNKNOWN;
    }
    if (is_user_mode_drv(pkgname)) {
        return IsProcessRunning(pkgname);
    }
    return look_for(CHECK_MODULE, exe);
}

int get_current_status(int type, const char *name) {
    switch (type) {
    case SWVER_TYPE_DRIVER:
        return IsDriverLoaded(name);
    case SWVER_TYPE_AGENT:
    case SWVER_TYPE_UTILITY:
    case SWVER_TYPE_APPLICATION:
        return IsProcessRunning(name);
    default:
        return SWVER_STATUS_UNKNOWN;
    }
}

void RecalculateNextIndex(void) {
    if (g_NextIndex == -1) {
        return;
    }
    if (g_NextIndex > SWVER_MAX_ROWS) {
        g_NextIndex = -1;
        return;
    }
    ++g_NextIndex;
}

// Indexes ascend, with a gap where a node could not be allocated.
static RowIndex<vorHo_Swver_t> s_rows;

vorHo_Swver_t *swver_row_from(unsigned long index) {
    return s_rows.from(index, [](const vorHo_Swver_t *row) { return row->vorSwverEntry->index; });
}

int HostOsSwEntry_new(swver_t *pSwVerEntry) {
    RecalculateNextIndex();
    // The index is taken even when the node cannot be allocated below.
    pSwVerEntry->index = g_NextIndex;
    vorHo_Swver_t *node = new (std::nothrow) vorHo_Swver_t();
    if (!node) {
        VOR_DEBUG(SWVER_TOKEN, "HostOsSwEntry_new: calloc failed\n");
        return 0;
    }
    node->vorSwverEntry = pSwVerEntry;
    node->next = nullptr;
    if (!s_rows.append(swVerList, node)) {
        delete node;
        VOR_DEBUG(SWVER_TOKEN, "HostOsSwEntry_new: calloc failed\n");
        return 0;
    }
    return 1;
}

void cleanup_swver_list(void) {
    vorHo_Swver_t *node = swVerList;
    while (node) {
        vorHo_Swver_t *next = node->next;
        delete node->vorSwverEntry;
        delete node;
        --g_NextIndex;
        node = next;
    }
    swVerList = nullptr;
    s_rows.clear();
}

static bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// One line of at most size - 1 characters (fgets semantics). The rest of a
// longer line is read and dropped, so that the two lines of each package
// stay paired however long a line the listing holds.
static bool read_listing_line(FILE *fp, char *buf, int size) {
    if (!fgets(buf, size, fp)) {
        return false;
    }
    const size_t len = strlen(buf);
    if (static_cast<int>(len) == size - 1 && buf[len - 1] != '\n') {
        int c;
        while ((c = getc(fp)) != EOF && c != '\n') {
        }
    }
    return true;
}

// The first blank-delimited word of the line, cut to SWVER_NAME_MAX.
static void first_word(const char *line, char *name) {
    while (is_blank(*line)) {
        ++line;
    }
    size_t n = 0;
    while (n < SWVER_NAME_MAX && line[n] && !is_blank(line[n]) && line[n] != '\n' &&
           line[n] != '\r') {
        name[n] = line[n];
        ++n;
    }
    name[n] = '\0';
}

// "(arch) version,REV=..." with its line end already removed: the text
// after ") " up to the first comma, at most 10 characters. Without a ")"
// the version is left empty.
static void parse_version(char *line, char *version) {
    char *p = strchr(line, ')');
    if (!p) {
        return;
    }
    char *comma = strchr(p, ',');
    if (comma) {
        *comma = '\0';
    }
    ++p; // the ")"
    if (*p) {
        ++p; // the blank after it
    }
    strncpy(version, p, SWVER_VERSION_SIZE - 1);
    version[SWVER_VERSION_SIZE - 1] = '\0';
}

// The description starts after the word at from and the blanks behind it;
// the line end stays with it when it fits.
static void describe(swver_t *record, const char *from) {
    while (*from && !is_blank(*from)) {
        ++from;
    }
    if (*from) {
        while (is_blank(*from)) {
            ++from;
        }
        strncpy(record->description, from, SWVER_DESC_SIZE - 1);
    }
}

// Reads the package's second line into line and takes the version from it;
// false at the end of input.
static bool read_version(FILE *fp, char *line, swver_t *record) {
    if (!read_listing_line(fp, line, PKG_VERSION_LINE_BUF)) {
        return false;
    }
    const size_t len = strlen(line);
    if (len > 0 && line[len - 1] == '\n') {
        line[len - 1] = '\0';
    }
    parse_version(line, record->version);
    return true;
}

// ---------------------------------------------------------------------------
// The operator's watch list

namespace {

struct WatchLine {
    int type;
    int check; // CHECK_*
    std::string prefix;
    std::string exe;
};
std::vector<WatchLine> s_watch;

// A watched package's row, kept until the filters' rows are all in.
struct WatchedRow {
    std::unique_ptr<swver_t> record;
    const WatchLine *watch;
};

} // namespace

static const WatchLine *watch_for(const char *name) {
    for (const WatchLine &w : s_watch) {
        if (has_prefix(name, w.prefix.c_str())) {
            return &w;
        }
    }
    return nullptr;
}

// A first line the filters left out: when the package is watched, its row
// (both lines read) goes to watched.
static void take_watched(FILE *fp, char *line, std::vector<WatchedRow> &watched) {
    if (is_blank(line[0])) {
        return; // a second line read on its own
    }
    char name[SWVER_NAME_MAX + 1];
    first_word(line, name);
    const WatchLine *watch = watch_for(name);
    if (!watch) {
        return;
    }
    std::unique_ptr<swver_t> record(new (std::nothrow) swver_t());
    if (!record) {
        return;
    }
    describe(record.get(), line);
    record->type = watch->type;
    strncpy(record->name, name, SWVER_NAME_SIZE - 1);
    if (!read_version(fp, line, record.get())) {
        return;
    }
    try {
        watched.push_back(WatchedRow{std::move(record), watch});
    } catch (const std::bad_alloc &) {
        // left out of this rebuild, as a record that cannot be allocated
    }
}

static int watch_status(const WatchLine &watch) {
    return watch.check == CHECK_NONE ? SWVER_STATUS_UNKNOWN
                                     : look_for(watch.check, watch.exe.c_str());
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
        how = CHECK_PROCESS;
    } else if (strcmp(check, "module") == 0) {
        how = CHECK_MODULE;
    } else if (check[0]) {
        return watch_error(token, line, "unknown check", check, " (process NAME or module NAME)");
    }
    if (how != CHECK_NONE && !exe[0]) {
        return watch_error(token, line, "missing name after", check);
    }
    if (extra[0]) {
        return watch_error(token, line, "unexpected word", extra);
    }
    try {
        s_watch.push_back(WatchLine{type, how, prefix, exe});
    } catch (const std::bad_alloc &) {
        return watch_error(token, line, "out of memory");
    }
    VOR_DEBUG(SWVER_TOKEN, "watching packages %s (kind %d)\n", prefix, type);
}

void free_softwareWatch(void) {
    s_watch.clear();
}

// ---------------------------------------------------------------------------
// Rebuild

void read_pkg_listing(FILE *fp, swver_status_fn status_of) {
    if (swVerList) {
        cleanup_swver_list();
    }
    std::vector<WatchedRow> watched;
    char line[PKG_LINE_BUF];
    while (read_listing_line(fp, line, sizeof(line))) {
        const char *hit = strstr(line, "KYQ");
        if (!hit) {
            hit = strstr(line, "VOR");
        }
        char name[SWVER_NAME_MAX + 1];
        int type = 0;
        if (hit) {
            first_word(line, name);
            type = is_eligible_pkg(name);
        }
        if (type == 0) {
            if (!s_watch.empty()) {
                take_watched(fp, line, watched);
            }
            continue;
        }
        std::unique_ptr<swver_t> record(new (std::nothrow) swver_t());
        if (!record) {
            continue;
        }
        // The text after the word that holds the match.
        describe(record.get(), hit);
        record->type = type;
        record->status = status_of(type, name);
        strncpy(record->name, name, SWVER_NAME_SIZE - 1);
        if (!read_version(fp, line, record.get())) {
            break; // a package cut off after its first line is dropped
        }
        if (g_NextIndex < 0 || g_NextIndex >= SWVER_MAX_ROWS) {
            break;
        }
        if (HostOsSwEntry_new(record.get())) {
            record.release(); // the list owns it now
        }
    }
    // The watched packages follow, within the same 100 rows.
    for (WatchedRow &row : watched) {
        if (g_NextIndex < 0 || g_NextIndex >= SWVER_MAX_ROWS) {
            break;
        }
        row.record->status = watch_status(*row.watch);
        if (HostOsSwEntry_new(row.record.get())) {
            row.record.release();
        }
    }
    SyncAlteredList();
}

int populate_SwVerEntries(void) {
    char cmd[PATH_MAX + 8];
    const int n = snprintf(cmd, sizeof(cmd), "%s -x", platform::pkginfo_path());
    if (n < 0 || static_cast<size_t>(n) >= sizeof(cmd)) {
        errno = ENAMETOOLONG;
        perror("popen pkginfo");
        return 0;
    }
    const MemoScope memo;
    for (const WatchLine &watch : s_watch) {
        if (watch.check != CHECK_NONE) {
            start_ahead(watch.check);
        }
    }
    platform::PopenStream listing(cmd);
    if (!listing.ok()) {
        perror("popen pkginfo");
        return 0;
    }
    fp_pkglist = listing.get();
    read_pkg_listing(fp_pkglist, get_current_status);
    fp_pkglist = nullptr;
    listing.close();
    return 1;
}

int refresh_SwverLoad_CB(void) {
    VOR_DEBUG(SWVER_TOKEN, "refresh_refresh_SwverLoad_CB: Enter \n");
    return populate_SwVerEntries() != 0 ? 1 : 0;
}

// Through the row index rather than along the list: every GET of a walk
// looks its row up here.
static swver_t *find_row(int index) {
    if (index <= 0) {
        return nullptr;
    }
    vorHo_Swver_t *node = swver_row_from(static_cast<unsigned long>(index));
    return node && node->vorSwverEntry->index == index ? node->vorSwverEntry : nullptr;
}

template <size_t N> static void copy_text_out(void *dest, const char (&field)[N]) {
    memcpy(dest, field, strnlen(field, N));
}

int ReadSwverEntry(int Swver_rowid, int val_Type, void *swver_val) {
    const swver_t *row = find_row(Swver_rowid);
    if (!row || !swver_val) {
        return 0;
    }
    int32_t v;
    switch (val_Type) {
    case SWVER_INDEX:
        v = row->index;
        memcpy(swver_val, &v, sizeof(v));
        return 1;
    case SWVER_STATUS:
        v = row->status;
        memcpy(swver_val, &v, sizeof(v));
        return 1;
    case SWVER_TYPE:
        v = row->type;
        memcpy(swver_val, &v, sizeof(v));
        return 1;
    case SWVER_NAME:
        copy_text_out(swver_val, row->name);
        return 1;
    case SWVER_DESCRIPTION:
        copy_text_out(swver_val, row->description);
        return 1;
    case SWVER_DATE:
        copy_text_out(swver_val, row->date);
        return 1;
    case SWVER_LOCATION:
        copy_text_out(swver_val, row->location);
        return 1;
    case SWVER_VERSION:
        copy_text_out(swver_val, row->version);
        return 1;
    case SWVER_VERSION_BIN:
        copy_text_out(swver_val, row->versionBin);
        return 1;
    default:
        return 0;
    }
}

int getFirstSwVerEntryIndex(int *sw_index) {
    if (!swVerList) {
        return 0;
    }
    *sw_index = swVerList->vorSwverEntry->index;
    return 1;
}

int getNextSwVerEntryIndex(int curr_sw_index, int *next_sw_index) {
    for (const vorHo_Swver_t *node = swVerList; node; node = node->next) {
        if (node->vorSwverEntry->index == curr_sw_index) {
            if (!node->next) {
                return 0;
            }
            *next_sw_index = node->next->vorSwverEntry->index;
            return 1;
        }
    }
    return 0;
}

// ---------------------------------------------------------------------------
// Operator edits

// Clears the field and copies at most its width less one byte into it, so
// the field always ends in a NUL.
template <size_t N> static void put_text(char (&field)[N], const char *value, int length) {
    memset(field, 0, N);
    if (!value || length <= 0) {
        return;
    }
    memcpy(field, value, static_cast<size_t>(length) < N ? static_cast<size_t>(length) : N - 1);
}

int set_swver_column_val_str(int columNo, int rowNo, const char *Value, int length) {
    swver_t *row = find_row(rowNo);
    if (!row) {
        return SNMP_ERR_GENERR;
    }
    switch (columNo) {
    case SWVER_NAME:
        put_text(row->name, Value, length);
        return SNMP_ERR_NOERROR;
    case SWVER_DESCRIPTION:
        put_text(row->description, Value, length);
        return SNMP_ERR_NOERROR;
    case SWVER_LOCATION:
        put_text(row->location, Value, length);
        return SNMP_ERR_NOERROR;
    default:
        return SNMP_ERR_GENERR;
    }
}

int set_swver_column_val_int(int columNo, int rowNo, int value) {
    swver_t *row = find_row(rowNo);
    if (!row || columNo != SWVER_TYPE) {
        return SNMP_ERR_GENERR;
    }
    row->type = value;
    return SNMP_ERR_NOERROR;
}

template <size_t N> static void put_string(char (&field)[N], const char *text) {
    put_text(field, text, text ? static_cast<int>(strnlen(text, N)) : 0);
}

static void apply_edit(altered_swver_entry *entry, const void *data, int type) {
    if (!data) {
        return;
    }
    switch (type) {
    case SWVER_TYPE:
        memcpy(&entry->type, data, sizeof(entry->type));
        entry->type_dirty_bit = 1;
        break;
    case SWVER_LOCATION:
        put_string(entry->location, static_cast<const char *>(data));
        entry->loc_dirty_bit = 1;
        break;
    case SWVER_DESCRIPTION:
        put_string(entry->description, static_cast<const char *>(data));
        entry->desc_dirty_bit = 1;
        break;
    default:
        break;
    }
}

int UpdateAlteredList(const char *pkgName, const void *data, int type) {
    if (!pkgName) {
        return 0;
    }
    altered_swver_entry *tail = nullptr;
    for (altered_swver_entry *entry = alterList; entry; entry = entry->next) {
        if (strcmp(entry->pkgName, pkgName) == 0) {
            apply_edit(entry, data, type);
            return 1;
        }
        tail = entry;
    }
    altered_swver_entry *entry = new (std::nothrow) altered_swver_entry();
    if (!entry) {
        return 0;
    }
    entry->index = ++alt_index;
    put_string(entry->pkgName, pkgName);
    apply_edit(entry, data, type);
    if (tail) {
        tail->next = entry;
    } else {
        alterList = entry;
    }
    return 1;
}

void SyncAlteredList(void) {
    for (const altered_swver_entry *entry = alterList; entry; entry = entry->next) {
        for (vorHo_Swver_t *node = swVerList; node; node = node->next) {
            swver_t *row = node->vorSwverEntry;
            if (strcmp(row->name, entry->pkgName) != 0) {
                continue;
            }
            if (entry->type_dirty_bit) {
                row->type = entry->type;
            }
            if (entry->desc_dirty_bit) {
                memcpy(row->description, entry->description, sizeof(row->description));
            }
            if (entry->loc_dirty_bit) {
                memcpy(row->location, entry->location, sizeof(row->location));
            }
        }
    }
}
