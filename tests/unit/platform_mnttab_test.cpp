// SPDX-License-Identifier: Apache-2.0
// Solaris-style mount table reading over Linux mount lines.
#include "platform/mnttab.h"
#include "unit_helpers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every entry to the end as "special|mountp|fstype|options", or its error.
std::vector<std::string> scan(FILE *fp) {
    std::vector<std::string> got;
    struct mnttab m;
    for (int rc; fp && (rc = solaris::getmntent(fp, &m)) != -1;) {
        got.push_back(rc ? "error " + std::to_string(rc)
                         : std::string(m.mnt_special) + "|" + m.mnt_mountp + "|" + m.mnt_fstype +
                               "|" + m.mnt_mntopts);
        EXPECT_STREQ(rc ? "" : m.mnt_time, "");
    }
    if (fp)
        fclose(fp);
    return got;
}
std::vector<std::string> scan(std::string text) {
    return scan(fmemopen(text.data(), text.size(), "r"));
}

TEST(PlatformMnttab, DecodesEscapesAndPassesOverKernelInterfaces) {
    use_fixture("platform/host");
    FILE *fp = fopen(MNTTAB, "r");
    platform::set_host_root("");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(scan(fp), (std::vector<std::string>{
                            "/dev/vda1|/|ext4|rw,relatime",
                            "proc|/proc|proc|rw,nosuid,nodev,noexec,relatime",
                            "udev|/dev|devtmpfs|rw,nosuid,relatime,size=4000000k",
                            "tmpfs|/run|tmpfs|rw,nosuid,nodev,size=800000k,mode=755",
                            "systemd-1|/proc/sys/fs/binfmt_misc|autofs|rw,relatime,fd=30",
                            "/dev/sdb1|/media/My Disk|vfat|rw,relatime",
                            "server:/export/a\tb|/mnt/tab\tand\nnewline|nfs4|rw",
                            "/dev/sdc1|/mnt/back\\slash|ext4|rw",
                            "odd|/mnt/odd\\04|ext4|rw",
                            "odd2|/mnt/bad\\9xy\\000z\\|ext4|rw",
                            "overlay|/var/lib/docker/overlay2/x/merged|overlay|rw,lowerdir=/a:/b",
                        }));
}

TEST(PlatformMnttab, MalformedLinesAreReportedAndTheScanGoesOn) {
    EXPECT_EQ(scan("only three fields\na b c d e f g\n"
                   "dev /mnt ext4 rw\n"       // no dump and pass fields
                   "\nlast /end xfs rw 0 0"), // no final newline
              (std::vector<std::string>{
                  "error " + std::to_string(MNT_TOOFEW), "error " + std::to_string(MNT_TOOMANY),
                  "dev|/mnt|ext4|rw", "error " + std::to_string(MNT_TOOFEW), "last|/end|xfs|rw"}));
}

// A 4096-byte mount point of blanks escapes to 16 kB, a device of the same
// kind doubles that: both fit; a longer line is skipped whole.
TEST(PlatformMnttab, LongestLinuxPathsFitAndLongerLinesAreSkippedWhole) {
    std::string blanks;
    for (int i = 0; i < 4095; ++i)
        blanks += "\\040";
    const std::string b = "/" + std::string(4095, ' ');
    EXPECT_EQ(scan("/dev/a /" + blanks + " ext4 rw 0 0\n/" + blanks + " /" + blanks +
                   " nfs rw 0 0\n/dev/b /" + std::string(70 * 1024, 'x') +
                   " ext4 rw 0 0\n/dev/c /after ext4 rw 0 0\n"),
              (std::vector<std::string>{"/dev/a|" + b + "|ext4|rw", b + "|" + b + "|nfs|rw",
                                        "error " + std::to_string(MNT_TOOLONG),
                                        "/dev/c|/after|ext4|rw"}));
}

} // namespace
