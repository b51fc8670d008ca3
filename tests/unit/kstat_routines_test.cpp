// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "interface/KyOrblKstat_routines.h"
#include "platform/host_paths.h"

namespace {

TEST(KstatRoutines, FailuresGiveAllOnesAndReportTheFailingStep) {
    const struct {
        const char *tree, *name, *key, *report;
    } cases[] = {
        {"", "no_such_statistic", "ncpus", "kstat_lookup failed: "},
        {"", "system_misc", "no_such_key", ""}, // a missing key is silent
        {"/platform/bare", "system_misc", "ncpus", "kstat_read failed : "}, // no present list
        {"/no-such-tree", "system_misc", "ncpus", "kstat_open: "},
    };
    for (const auto &c : cases) {
        platform::set_host_root(*c.tree ? TEMHOSTD_FIXTURES + std::string(c.tree) : "");
        testing::internal::CaptureStderr();
        EXPECT_EQ(UINT64_MAX, getKstatVal64("unix", 0, c.name, c.key)) << c.name;
        EXPECT_EQ(UINT32_MAX, getKstatVal32("unix", 0, c.name, c.key)) << c.name;
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(*c.report ? err.rfind(c.report, 0) == 0 && err.back() == '\n' : err.empty())
            << c.tree << " " << c.name << ": " << err;
    }
    platform::set_host_root("");
}

} // namespace
