// SPDX-License-Identifier: Apache-2.0
// Software inventory: the installed management packages that the filters
// recognise, one record per package in "pkginfo -x" order, with kind,
// description, version and running state. The list is rebuilt wholesale on
// every refresh; operator edits of kind, description and location live in
// a list of their own, keyed by package name, and are written back into the
// fresh rows at the end of each rebuild. After the filters' rows come the
// rows of the operator's watch list (sw_watch.h).
#pragma once

#include <cstdio>

#include "interface/swver_codes.h" // SWVER_STATUS_*, SWVER_TYPE_*, SWVER_NAME_MAX, SWVER_VALUE_BUF

#define SWVER_MAX_ROWS 100
#define SWVER_NAME_SIZE 128
#define SWVER_DESC_SIZE 128
#define SWVER_DATE_SIZE 8
#define SWVER_LOC_SIZE 256
#define SWVER_VERSION_SIZE 11
#define SWVER_VERSIONBIN_SIZE 50

typedef struct _swver_t {
    int index;  // row index, 1 to 100
    int status; // SWVER_STATUS_*
    int type;   // SWVER_TYPE_*, or what an operator set
    char name[SWVER_NAME_SIZE];
    char description[SWVER_DESC_SIZE];
    char date[SWVER_DATE_SIZE]; // never filled: reads as empty
    char location[SWVER_LOC_SIZE];
    char version[SWVER_VERSION_SIZE];
    char versionBin[SWVER_VERSIONBIN_SIZE]; // never filled: reads as empty
} swver_t;

// A node owns its record; both are freed by cleanup_swver_list.
typedef struct _vorHo_Swver_t {
    swver_t *vorSwverEntry;
    struct _vorHo_Swver_t *next;
} vorHo_Swver_t;

typedef struct _pkg_exe_name_pair_t {
    char pkgName[128];
    char exeName[128];
} pkg_exe_name_pair_t;

// One package's operator edits; a field counts only once its dirty bit is set.
typedef struct _altered_swver_entry {
    int index; // creation serial number
    int type;
    char pkgName[SWVER_NAME_SIZE];
    char description[SWVER_DESC_SIZE];
    char location[SWVER_LOC_SIZE];
    int type_dirty_bit;
    int desc_dirty_bit;
    int loc_dirty_bit;
    struct _altered_swver_entry *next;
} altered_swver_entry;

// The table's columns, also the value codes of ReadSwverEntry and the
// column numbers of the setters and UpdateAlteredList.
enum {
    SWVER_INDEX = 1,
    SWVER_STATUS = 2,
    SWVER_TYPE = 3,
    SWVER_NAME = 4,
    SWVER_DESCRIPTION = 5,
    SWVER_DATE = 6,
    SWVER_LOCATION = 7,
    SWVER_VERSION = 8,
    SWVER_VERSION_BIN = 9,
    SWVER_MAX_COLUMN = SWVER_VERSION_BIN,
};

extern vorHo_Swver_t *swVerList; // head of the rows, in listing order
extern int g_NextIndex;          // index given to the last row added
extern altered_swver_entry *alterList;
extern int alt_index;
extern const pkg_exe_name_pair_t vorPkgs[10];

// Rebuild entry point (timer and on-demand): 1 after a completed read.
int refresh_SwverLoad_CB(void);
// Runs "pkginfo -x" and rebuilds the list from it; 0 (list unchanged)
// when the listing cannot be started.
int populate_SwVerEntries(void);

// How a row's running state is found; get_current_status in the daemon,
// a fixed answer in tests.
typedef int (*swver_status_fn)(int type, const char *name);
// Clears the list and reads a listing of two lines per package from fp into
// it (at most 100 rows), then re-applies the operator edits.
void read_pkg_listing(FILE *fp, swver_status_fn status_of);

// Gives the record the next index and appends it; the list then owns it.
// 0 (record still the caller's) when no node could be allocated.
int HostOsSwEntry_new(swver_t *pSwVerEntry);
void cleanup_swver_list(void);
void RecalculateNextIndex(void);

// Kind of a package from its name (2, 3, 5, 4), or 0: not listed.
int is_eligible_pkg(const char *name);
int is_user_mode_drv(const char *name);
// Driver module or daemon of a package, or null when none is known.
const char *get_exe_name(const char *pkgName);
int get_current_status(int type, const char *name);
int IsDriverLoaded(const char *pkgname);
int IsProcessRunning(const char *pkgname);

// Copies one field (a SWVER_* code) of row Swver_rowid into swver_val: a
// 4-byte int for codes 1 to 3, the text without its NUL for 4 to 9. 1 on
// success, 0 for a missing row or an unknown code.
int ReadSwverEntry(int Swver_rowid, int val_Type, void *swver_val);
int getFirstSwVerEntryIndex(int *sw_index);
// The first row whose index is index or more (null past the last).
vorHo_Swver_t *swver_row_from(unsigned long index);
int getNextSwVerEntryIndex(int curr_sw_index, int *next_sw_index);

// Column setters of the live row with that index: 0, or 5 (genErr) for a
// missing row or a column they do not set.
int set_swver_column_val_str(int columNo, int rowNo, const char *Value, int length);
int set_swver_column_val_int(int columNo, int rowNo, int value);
// Records one edit (column 3: data is an int; 5, 7: NUL-terminated text)
// under the package name: 1, or 0 when no entry could be allocated.
int UpdateAlteredList(const char *pkgName, const void *data, int type);
// Writes every recorded edit into the current rows of the same name.
void SyncAlteredList(void);
