#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblKstat_routines.h"

namespace {

TEST(KstatRoutines, ReadsTheHostsLiveCounters) {
    EXPECT_GE(getKstatVal32("unix", 0, "system_misc", "ncpus"), 1u);
    EXPECT_NE(KSTAT_FAIL32, getKstatVal32("unix", 0, "system_misc", "ncpus"));
    const uint64_t freemem = getKstatVal64("unix", 0, "system_pages", "freemem");
    EXPECT_GT(freemem, 0u);
    EXPECT_LT(freemem, static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES))) << "pages, not bytes";
}

TEST(KstatRoutines, FailuresGiveAllOnes) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(UINT64_MAX, getKstatVal64("unix", 0, "no_such_statistic", "freemem"));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, err.rfind("kstat_lookup failed: ", 0)) << err;
    EXPECT_EQ('\n', err.back());

    testing::internal::CaptureStderr();
    EXPECT_EQ(UINT64_MAX, getKstatVal64("unix", 0, "system_pages", "no_such_key"));
    EXPECT_EQ(UINT32_MAX, getKstatVal32("unix", 0, "system_misc", "no_such_key"));
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "a missing key is silent";
}

TEST(KstatRoutines, StepsLeaveTheHandleToTheCaller) {
    kstat_ctl_t *kc = kstatInit();
    ASSERT_NE(nullptr, kc);
    kstat_t *stat = kstatLookAndRead(kc, "unix", 0, "system_misc");
    ASSERT_NE(nullptr, stat);
    EXPECT_STREQ("system_misc", stat->ks_name);
    EXPECT_GE(_fetch32(stat, "ncpus"), 1u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(nullptr, kstatLookAndRead(kc, "unix", 0, "no_such_statistic"));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("kstat_lookup"));
    kstat_close(kc);
}

} // namespace
