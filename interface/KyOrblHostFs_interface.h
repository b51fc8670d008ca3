// SPDX-License-Identifier: Apache-2.0
// File system inventory: one record per mounted file system, kept in a
// singly linked list that the file system table walks in place. The list is
// rebuilt wholesale from the mount table and statvfs on every refresh.
#pragma once

#include <sys/statvfs.h>

#include <cstdint>

#define FS_DESC_SIZE 255 // description field: 254 characters and the NUL

typedef struct _fs_usage {
    int index;                           // row index, 0 for the first row
    uint64_t fsu_blocksize;              // bytes per counted block: fragment size, else block size
    uint64_t fsu_blocks;                 // total blocks
    uint64_t fsu_bfree;                  // free blocks
    uint64_t fsu_bavail;                 // blocks free to unprivileged users
    uintmax_t fsu_files;                 // total file nodes (all ones: unknown)
    uintmax_t fsu_ffree;                 // free file nodes (all ones: unknown)
    long fsu_totalMB;                    // size in MB, clamped to the INTEGER range
    uintmax_t fsu_percent;               // whole percent of blocks in use, plus one
    long fsu_usedMB;                     // used space in MB, clamped to the INTEGER range
    char vorHoFileSysDesc[FS_DESC_SIZE]; // "<device> On <mount point>", NUL-terminated
    long vorHoFileSysDesc_len;           // its length without the NUL
} fs_usage;

// A node owns its record; both are freed by erase_fs_container.
typedef struct _vorHost_fs_usage_t {
    fs_usage *pFsUsage;
    struct _vorHost_fs_usage_t *next;
} vorHost_fs_usage_t;

// Head of the list, in mount-table order; null when empty.
extern vorHost_fs_usage_t *FileSysUsageList;

// File system types left out of the table, null-terminated.
extern const char *const exclude_fstypes[7];

// The table's columns, also the value codes of ReadFsysEntry.
enum {
    FSYS_INDEX = 1,
    FSYS_DESC = 2,
    FSYS_TOTAL_MB = 3,
    FSYS_USED_MB = 4,
    FSYS_PERCENT = 5,
    FSYS_FILES = 6,
    FSYS_FILES_USED = 7,
    FSYS_MAX_COLUMN = FSYS_FILES_USED,
};

// Erases and rebuilds the list (start-up, the refresh timer, on-demand walks).
void refresh_flist_CB(void);
// Reads the mount table into the list: 1 when every entry gave a row.
int populate_filesystem_list(void);
// Adds a row for one mount-table entry from its statvfs answer: 1 when
// added, 0 when skipped (vfs null: no answer in time, a failed call) or
// failed.
int get_fs_usage(const char *path, const char *disk, const struct statvfs *vfs);
// 1 when fType is one of exclude_fstypes (exact, case-sensitive).
int isExcludedFTYpe(const char *fType);
// Links pfsp at the tail with the next index; the list then owns it.
// 0 (pfsp still the caller's) when the node cannot be allocated.
int add_to_container(fs_usage *pfsp);
// Frees every node and record and restarts the indexes at 0.
void erase_fs_container(void);
// The first row whose index is index or more (null past the last), found
// without walking the list.
vorHost_fs_usage_t *fs_row_from(unsigned long index);
// Writes the value chosen by val_Type of the row fsys_rowid to fsys_val:
// an int for codes 1, 3 and 4, the low 32 bits for 5 to 7, and for 2 the
// description bytes without a NUL. 1 on success, 0 for a missing row or an
// unknown code.
int ReadFsysEntry(int fsys_rowid, int val_Type, void *fsys_val);

// The figures of one record from a statvfs result: block counts, file-node
// counts, size and use in MB and the percentage. Pure, so it can be checked
// against known figures.
void fill_fs_figures(fs_usage *fsp, const struct statvfs &vfs);

// Served forms of the 32-bit columns.
int32_t fs_served_percent(const fs_usage *fsp);
int32_t fs_served_files(const fs_usage *fsp);
int32_t fs_served_files_used(const fs_usage *fsp);
