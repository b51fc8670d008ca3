// Solaris-style mount table reading over Linux mount lines.
#include "platform/host_paths.h"
#include "platform/mnttab.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(PlatformMnttab, DecodesEscapesAndPassesOverKernelInterfaces) {
    platform::set_host_root(std::string(TEMHOSTD_FIXTURES) + "/platform/host");
    FILE *fp = fopen(MNTTAB, "r");
    platform::set_host_root("");
    ASSERT_NE(fp, nullptr);
    std::vector<std::string> got;
    struct mnttab m;
    int rc;
    while ((rc = solaris::getmntent(fp, &m)) == 0) {
        got.push_back(std::string(m.mnt_special) + "|" + m.mnt_mountp + "|" + m.mnt_fstype);
        EXPECT_STREQ(m.mnt_time, "");
    }
    fclose(fp);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(got, (std::vector<std::string>{
                       "/dev/vda1|/|ext4",
                       "proc|/proc|proc",
                       "udev|/dev|devtmpfs",
                       "tmpfs|/run|tmpfs",
                       "systemd-1|/proc/sys/fs/binfmt_misc|autofs",
                       "/dev/sdb1|/media/My Disk|vfat",
                       "server:/export/a\tb|/mnt/tab\tand\nnewline|nfs4",
                       "/dev/sdc1|/mnt/back\\slash|ext4",
                       "odd|/mnt/odd\\04|ext4",
                       "odd2|/mnt/bad\\9xy\\000z\\|ext4",
                       "overlay|/var/lib/docker/overlay2/x/merged|overlay",
                   }));
}

// Reads a mount table held in a temporary file; each result, then -1.
struct Table {
    FILE *fp = tmpfile();
    struct mnttab m;
    explicit Table(const std::string &text) {
        fwrite(text.data(), 1, text.size(), fp);
        rewind(fp);
    }
    ~Table() { fclose(fp); }
    int next() { return solaris::getmntent(fp, &m); }
};

TEST(PlatformMnttab, MalformedLinesAreReportedAndTheScanCanGoOn) {
    Table t("only three fields\n"
            "a b c d e f g\n"
            "dev /mnt ext4 rw\n" // no dump and pass fields
            "\n"
            "last /end xfs rw 0 0"); // no final newline
    EXPECT_EQ(t.next(), MNT_TOOFEW);
    EXPECT_EQ(t.next(), MNT_TOOMANY);
    ASSERT_EQ(t.next(), 0);
    EXPECT_STREQ(t.m.mnt_mntopts, "rw");
    EXPECT_EQ(t.next(), MNT_TOOFEW);
    ASSERT_EQ(t.next(), 0);
    EXPECT_STREQ(t.m.mnt_mountp, "/end");
    EXPECT_EQ(t.next(), -1);
}

TEST(PlatformMnttab, LongestLinuxPathsFitAndLongerLinesAreSkippedWhole) {
    // A 4096-byte mount point made only of blanks escapes to 16 kB; a device
    // of the same kind doubles that.
    std::string blanks;
    for (int i = 0; i < 4095; ++i)
        blanks += "\\040";
    Table t("/dev/a /" + blanks + " ext4 rw 0 0\n/" + blanks + " /" + blanks + " nfs rw 0 0\n" +
            "/dev/b /" + std::string(70 * 1024, 'x') + " ext4 rw 0 0\n/dev/c /after ext4 rw 0 0\n");
    ASSERT_EQ(t.next(), 0);
    EXPECT_EQ(std::string(t.m.mnt_mountp), "/" + std::string(4095, ' '));
    ASSERT_EQ(t.next(), 0);
    EXPECT_EQ(std::string(t.m.mnt_special), "/" + std::string(4095, ' '));
    EXPECT_EQ(t.next(), MNT_TOOLONG);
    ASSERT_EQ(t.next(), 0);
    EXPECT_STREQ(t.m.mnt_mountp, "/after");
}

} // namespace
