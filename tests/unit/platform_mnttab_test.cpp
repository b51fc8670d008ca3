// SPDX-License-Identifier: Apache-2.0
// Solaris-style mount table reading over Linux mount lines.
#include "platform/mnttab.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every entry to the end as "special|mountp|fstype|options", or its error.
std::vector<std::string> scan(std::string text) {
    FILE *fp = fmemopen(text.data(), text.size(), "r");
    std::vector<std::string> got;
    struct mnttab m;
    for (int rc; (rc = solaris::getmntent(fp, &m)) != -1;)
        got.push_back(rc ? "error " + std::to_string(rc)
                         : std::string(m.mnt_special) + "|" + m.mnt_mountp + "|" + m.mnt_fstype +
                               "|" + m.mnt_mntopts);
    fclose(fp);
    return got;
}

// A 4096-byte mount point of blanks escapes to 16 kB, a device of the same
// kind doubles that: both fit; a longer line is skipped whole. Malformed
// lines and kernel interfaces do not end the scan.
TEST(PlatformMnttab, EscapesFieldCountsAndTheLongestLines) {
    std::string blanks;
    for (int i = 0; i < 4095; ++i)
        blanks += "\\040";
    const std::string b = "/" + std::string(4095, ' ');
    const auto error = [](int rc) { return "error " + std::to_string(rc); };
    EXPECT_EQ(scan("a b c d e f g\nonly three fields\nsysfs /sys sysfs rw 0 0\n"
                   "srv:/a\\011b /mnt/x\\134y\\04 nfs4 rw\n/dev/a /" +
                   blanks + " ext4 rw 0 0\n/" + blanks + " /" + blanks + " nfs rw 0 0\n/dev/b /" +
                   std::string(70 * 1024, 'x') + " ext4 rw 0 0\nlast /end xfs rw 0 0"),
              (std::vector<std::string>{error(MNT_TOOMANY), error(MNT_TOOFEW),
                                        "srv:/a\tb|/mnt/x\\y\\04|nfs4|rw",
                                        "/dev/a|" + b + "|ext4|rw", b + "|" + b + "|nfs|rw",
                                        error(MNT_TOOLONG), "last|/end|xfs|rw"}));
}

} // namespace
