// SPDX-License-Identifier: Apache-2.0
// Ours, beside the file system inventory: the operator's exclusions, lines
// of the daemon's configuration file that keep container hosts' mounts
// (overlay, nsfs, thousands of them) out of the table:
//   fsExcludeType TYPE[,TYPE...]   types separated by commas and/or blanks
//   fsExcludePath PATTERN          a shell glob (fnmatch, no flags, so "*"
//                                  also matches "/") against the mount point
// Both may repeat. A mount either names is left out before its usage is
// asked for and takes no index. A bad line is reported with its file and
// line number and skipped.
#pragma once

#define FS_EXCLUDE_TYPE_TOKEN "fsExcludeType"
#define FS_EXCLUDE_TYPE_HELP "TYPE[,TYPE...]"
#define FS_EXCLUDE_PATH_TOKEN "fsExcludePath"
#define FS_EXCLUDE_PATH_HELP "PATTERN"

void parse_fsExcludeType(const char *token, char *line);
void parse_fsExcludePath(const char *token, char *line);
// Forget each list (the library calls them before reading again).
void free_fsExcludeType(void);
void free_fsExcludePath(void);

// Registers both directives for the application's configuration file,
// before the library reads it.
void register_fs_exclude_directives(const char *app);

// True when the operator excluded a mount of this type at this point.
bool fs_excluded(const char *fstype, const char *mount_point);
