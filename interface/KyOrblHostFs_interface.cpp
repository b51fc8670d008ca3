// SPDX-License-Identifier: Apache-2.0
#include "interface/KyOrblHostFs_interface.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "interface/debug.h"
#include "interface/fs_exclude.h"
#include "interface/row_index.h"
#include "platform/guard.h"
#include "platform/host_files.h"
#include "platform/mnttab.h"
#include "platform/mount_probe.h"

#define FS_TOKEN "vorOrblFSinterface"

vorHost_fs_usage_t *FileSysUsageList = nullptr;

// Pseudo file systems that carry no storage worth reporting.
const char *const exclude_fstypes[7] = {"autofs", "ctfs",  "proc", "mntfs",
                                        "objfs",  "devfs", nullptr};

// Index most recently assigned; -1 while the list is empty.
static int s_current_index = -1;

static RowIndex<vorHost_fs_usage_t> s_rows;

// Whole MB held by count blocks of size bytes. Exact integer arithmetic
// gives the same truncated figure as a double division for every 32-bit
// input, and keeps its precision for 64-bit counts.
static int64_t whole_mb(uint64_t size, uint64_t count) {
    unsigned __int128 mb = (static_cast<unsigned __int128>(size) * count) >> 20;
    return mb > INT64_MAX ? INT64_MAX : static_cast<int64_t>(mb);
}

// The MB columns are 32-bit INTEGERs: a file system of 2 PiB or more reads
// as the largest value rather than wrapping into nonsense.
static long clamp_to_integer(int64_t mb) {
    if (mb > INT32_MAX) {
        return INT32_MAX;
    }
    if (mb < INT32_MIN) {
        return INT32_MIN;
    }
    return static_cast<long>(mb);
}

// File-node counts were 32-bit where all ones meant "unknown"; that marker
// still reads as unknown (all ones) once widened. Linux counts are 64-bit,
// so every other value, including real counts above 2^32, is kept as is.
static uintmax_t widen_file_count(uint64_t count) {
    return count == UINT32_MAX ? UINTMAX_MAX : count;
}

void fill_fs_figures(fs_usage *fsp, const struct statvfs &vfs) {
    fsp->fsu_blocksize = vfs.f_frsize != 0 ? vfs.f_frsize : vfs.f_bsize;
    fsp->fsu_blocks = vfs.f_blocks;
    fsp->fsu_bfree = vfs.f_bfree;
    fsp->fsu_bavail = vfs.f_bavail;
    fsp->fsu_files = widen_file_count(vfs.f_files);
    fsp->fsu_ffree = widen_file_count(vfs.f_ffree);

    const int64_t total_mb = whole_mb(fsp->fsu_blocksize, vfs.f_blocks);
    // The free part is always counted in fragments, never in the block-size
    // fallback: a file system reporting no fragment size reads as full.
    const int64_t used_mb = vfs.f_blocks == 0 ? 0 : total_mb - whole_mb(vfs.f_frsize, vfs.f_bfree);

    if (total_mb == 0 || used_mb == 0) {
        fsp->fsu_percent = 0;
    } else {
        // More free than total blocks wraps as the 32-bit counts did; the
        // reported share is the whole percent plus one (full reads 101).
        const uint64_t used_blocks = vfs.f_blocks >= vfs.f_bfree
                                         ? vfs.f_blocks - vfs.f_bfree
                                         : static_cast<uint32_t>(vfs.f_blocks - vfs.f_bfree);
        fsp->fsu_percent = static_cast<uintmax_t>(
            static_cast<double>(used_blocks) * 100.0 / static_cast<double>(vfs.f_blocks) + 1.0);
    }
    fsp->fsu_totalMB = clamp_to_integer(total_mb);
    fsp->fsu_usedMB = clamp_to_integer(used_mb);
}

int32_t fs_served_percent(const fs_usage *fsp) {
    return static_cast<int32_t>(static_cast<uint32_t>(fsp->fsu_percent));
}

int32_t fs_served_files(const fs_usage *fsp) {
    return static_cast<int32_t>(static_cast<uint32_t>(fsp->fsu_files));
}

int32_t fs_served_files_used(const fs_usage *fsp) {
    const uint32_t used =
        static_cast<uint32_t>(fsp->fsu_files) - static_cast<uint32_t>(fsp->fsu_ffree);
    return static_cast<int32_t>(used);
}

void refresh_flist_CB(void) {
    VOR_DEBUG(FS_TOKEN, "refresh_flist_CB: Enter \n");
    erase_fs_container();
    populate_filesystem_list();
}

// The statvfs calls are made all together while the mount table is read
// (platform/mount_probe.h), each rebuild waiting for them a short while: a
// slow file system keeps its last answer for a few seconds, a hung one holds
// the loop for that short while once, then not at all while it hangs. One
// past its limit is left out like one whose statvfs fails.
int populate_filesystem_list(void) {
    FILE *fp = platform::open_for_reading(MNTTAB);
    if (!fp) {
        snmp_log(LOG_ERR, "KYOrblHost - File system Info :unable to open mnttab");
        VOR_DEBUG(FS_TOKEN, "Unable to open MNTTAB \n");
        return 0;
    }
    return platform::c_call(0, [fp] {
        std::unique_ptr<FILE, int (*)(FILE *)> table(fp, fclose);
        int result = 1;
        std::deque<platform::MountId> mounts;
        // The calls begin while the table is read: one entry at a time.
        const std::vector<platform::StatAnswer> answers =
            platform::mount_probe().stat_all([&]() -> const platform::MountId * {
                struct mnttab entry;
                // A malformed entry ends the scan as the end of the table does.
                while (solaris::getmntent(fp, &entry) == 0) {
                    // Excluded types (and the operator's exclusions) never reach statvfs.
                    if (isExcludedFTYpe(entry.mnt_fstype) ||
                        fs_excluded(entry.mnt_fstype, entry.mnt_mountp)) {
                        result = 0;
                        continue;
                    }
                    mounts.push_back({entry.mnt_mountp, entry.mnt_special, entry.mnt_fstype});
                    return &mounts.back();
                }
                return nullptr;
            });
        table.reset();
        for (size_t i = 0; i < mounts.size(); ++i) {
            const platform::StatAnswer &answer = answers[i];
            const bool answered = answer.answered && answer.rc == 0;
            if (get_fs_usage(mounts[i].path.c_str(), mounts[i].source.c_str(),
                             answered ? &answer.vfs : nullptr) != 1) {
                result = 0;
            }
        }
        return result;
    });
}

int get_fs_usage(const char *path, const char *disk, const struct statvfs *vfs) {
    // An entry unmounted since the mount-table read, not answered yet, or
    // stuck, is skipped silently and takes no index.
    if (!vfs) {
        return 0;
    }
    std::unique_ptr<fs_usage> record(new (std::nothrow) fs_usage());
    if (!record) {
        VOR_DEBUG(FS_TOKEN, "get_fs_usage calloc failed \n");
        return 0;
    }
    fill_fs_figures(record.get(), *vfs);

    // Cut to the field when device and mount point are too long together.
    snprintf(record->vorHoFileSysDesc, sizeof(record->vorHoFileSysDesc), "%s On %s", disk, path);
    record->vorHoFileSysDesc_len = static_cast<long>(strlen(record->vorHoFileSysDesc));

    if (!add_to_container(record.get())) {
        VOR_DEBUG(FS_TOKEN, "Unable to insert entry to linked list\n");
        return 0;
    }
    record.release(); // the list owns it now
    return 1;
}

int isExcludedFTYpe(const char *fType) {
    if (!fType) {
        return 0;
    }
    for (const char *const *name = exclude_fstypes; *name; ++name) {
        if (strcmp(fType, *name) == 0) {
            return 1;
        }
    }
    return 0;
}

int add_to_container(fs_usage *pfsp) {
    std::unique_ptr<vorHost_fs_usage_t> node(new (std::nothrow) vorHost_fs_usage_t());
    if (!node) {
        VOR_DEBUG(FS_TOKEN, "add_to_container: calloc failed\n");
        return 0;
    }
    node->pFsUsage = pfsp;
    node->next = nullptr;
    if (!s_rows.append(FileSysUsageList, node.get())) {
        VOR_DEBUG(FS_TOKEN, "add_to_container: calloc failed\n");
        return 0;
    }
    node.release(); // the list owns it now
    pfsp->index = ++s_current_index;
    return 1;
}

void erase_fs_container(void) {
    vorHost_fs_usage_t *node = FileSysUsageList;
    while (node) {
        vorHost_fs_usage_t *next = node->next;
        delete node->pFsUsage;
        delete node;
        node = next;
    }
    FileSysUsageList = nullptr;
    s_rows.clear();
    s_current_index = -1;
}

vorHost_fs_usage_t *fs_row_from(unsigned long index) {
    return s_rows.from(index, [](const vorHost_fs_usage_t *row) { return row->pFsUsage->index; });
}

static void put_int32(void *dest, int32_t value) {
    memcpy(dest, &value, sizeof(value));
}

int ReadFsysEntry(int fsys_rowid, int val_Type, void *fsys_val) {
    if (const vorHost_fs_usage_t *node =
            fsys_rowid >= 0 ? fs_row_from(static_cast<unsigned long>(fsys_rowid)) : nullptr) {
        const fs_usage *fsp = node->pFsUsage;
        switch (val_Type) {
        case FSYS_INDEX:
            put_int32(fsys_val, fsp->index);
            return 1;
        case FSYS_DESC:
            memcpy(fsys_val, fsp->vorHoFileSysDesc, static_cast<size_t>(fsp->vorHoFileSysDesc_len));
            return 1;
        case FSYS_TOTAL_MB:
            put_int32(fsys_val, static_cast<int32_t>(fsp->fsu_totalMB));
            return 1;
        case FSYS_USED_MB:
            put_int32(fsys_val, static_cast<int32_t>(fsp->fsu_usedMB));
            return 1;
        case FSYS_PERCENT:
            put_int32(fsys_val, fs_served_percent(fsp));
            return 1;
        case FSYS_FILES:
            put_int32(fsys_val, fs_served_files(fsp));
            return 1;
        case FSYS_FILES_USED:
            put_int32(fsys_val, fs_served_files_used(fsp));
            return 1;
        default:
            return 0;
        }
    }
    return 0;
}
