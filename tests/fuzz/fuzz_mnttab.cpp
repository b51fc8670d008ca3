// SPDX-License-Identifier: Apache-2.0
// The mount table reader over arbitrary text: escapes, overlong lines,
// missing fields. Every entry it returns must be NUL-terminated fields.
#include <cstdio>
#include <cstring>

#include "platform/mnttab.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    FILE *fp = fmemopen(const_cast<unsigned char *>(data), size, "r");
    if (!fp) {
        return 0;
    }
    struct mnttab entry;
    for (int rc; (rc = solaris::getmntent(fp, &entry)) != -1;) {
        if (rc == 0) {
            // reading every field proves each is a terminated string
            volatile size_t n = strlen(entry.mnt_special) + strlen(entry.mnt_mountp) +
                                strlen(entry.mnt_fstype) + strlen(entry.mnt_mntopts);
            (void)n;
        }
    }
    fclose(fp);
    return 0;
}
