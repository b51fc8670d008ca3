// SPDX-License-Identifier: Apache-2.0
#include "interface/vorHoSwVer_interface.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "interface/debug.h"
#include "interface/row_index.h"
#include "interface/sw_checks.h"
#include "interface/sw_watch.h"
#include "platform/commands.h"
#include "platform/popen_stream.h"

#define SWVER_TOKEN "vorOrblFSinterface"

// Buffers of the listing read: a first line of up to 255 characters, a
// version line of up to 79.
#define PKG_LINE_BUF 256
#define PKG_VERSION_LINE_BUF 80

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
// State checks: a package's daemon or driver module is looked for in the
// output of "ps -aef" or "modinfo -w" (sw_checks.h).

int IsProcessRunning(const char *pkgname) {
    const char *exe = get_exe_name(pkgname);
    if (!exe) {
        return SWVER_STATUS_UNKNOWN;
    }
    return sw_check(CHECK_PROCESS, exe);
}

int IsDriverLoaded(const char *pkgname) {
    const char *exe = get_exe_name(pkgname);
    if (!exe) {
        return SWVER_STATUS_UNKNOWN;
    }
    if (is_user_mode_drv(pkgname)) {
        return IsProcessRunning(pkgname);
    }
    return sw_check(CHECK_MODULE, exe);
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
// The operator's watch list (sw_watch.h): rows of the packages it names

namespace {

// A watched package's row, kept until the filters' rows are all in.
struct WatchedRow {
    std::unique_ptr<swver_t> record;
    const WatchLine *watch;
};

} // namespace

// A first line the filters left out: when the package is watched, its row
// (both lines read) goes to watched.
static void take_watched(FILE *fp, char *line, std::vector<WatchedRow> &watched) {
    if (is_blank(line[0])) {
        return; // a second line read on its own
    }
    char name[SWVER_NAME_MAX + 1];
    first_word(line, name);
    const WatchLine *watch = sw_watch_for(name);
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
            if (sw_watching()) {
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
        row.record->status = sw_watch_status(*row.watch);
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
    SwCheckRefresh checks;
    sw_watch_start_checks(checks);
    platform::PopenStream listing(cmd);
    // The whole listing first: one that cannot be read to its end in time
    // counts as one that could not be started, and the list stays as it was.
    const bool started = listing.ok();
    platform::CommandOutput text;
    if (!listing.read_all(text)) {
        errno = started ? ETIMEDOUT : ECHILD;
        perror("popen pkginfo");
        return 0;
    }
    listing.close();
    fp_pkglist = text.as_file();
    if (!fp_pkglist) {
        perror("popen pkginfo");
        return 0;
    }
    read_pkg_listing(fp_pkglist, get_current_status);
    fp_pkglist = nullptr; // closed with text
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
