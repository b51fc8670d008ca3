// SPDX-License-Identifier: Apache-2.0
// The run files across a stop killed at each of its steps, a failed final
// store and crashes one after another: what the next start reads.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

#include "daemon/run_marker.h"
#include "unit_helpers.h"

namespace {

std::string read_text(const std::string &path) {
    std::ifstream in(path);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}

// A persistent directory, its files named as the daemon's.
struct RunDir {
    ScratchDir dir;
    std::string pid = dir.path + "/temhostd.pid", file = dir.path + "/temhostd.conf",
                copy = dir.path + "/temhostd.conf.saf";
    RunFiles files{dir.path.c_str(), pid.c_str(), file.c_str(), copy.c_str()};
    int pid_fd = -1;

    // A start as the daemon makes it, up to the library's emptying of the
    // file after reading it; gives what the library read.
    std::string start() {
        const bool unclean = access(pid.c_str(), F_OK) == 0 || run_marker_present(dir.path.c_str());
        pid_fd = open(pid.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (unclean) {
            roll_back_to_saved_copy(files);
        } else {
            unlink(copy.c_str());
            link(file.c_str(), copy.c_str());
        }
        mark_run_started(dir.path.c_str());
        const std::string read = read_text(file);
        rename(file.c_str(), (file + ".0").c_str()); // the library's fresh file
        std::ofstream(file) << "# header\n";
        unlink((file + ".0").c_str());
        return read;
    }
    // The library's final store; room_for: bytes written before the disk is full.
    void store(const std::string &text, size_t room_for = std::string::npos) {
        rename(file.c_str(), (file + ".0").c_str());
        std::ofstream(file) << text.substr(0, room_for);
        unlink((file + ".0").c_str());
    }
    ~RunDir() {
        if (pid_fd >= 0)
            close(pid_fd);
    }
};

std::optional<EndStep> g_kill_at;
bool kill_at(EndStep step) {
    return !(g_kill_at && *g_kill_at == step);
}

const std::vector<std::string> STORED = {"engineBoots 5", "system_role New"};
const std::string STORED_TEXT = "# header\nengineBoots 5\nsystem_role New\n";

} // namespace

// A stop killed before each of its steps (or not at all) leaves the next
// start the last completed store: read back whole, then the saved copy
// removed. A store killed before that, or cut short by a full disk, goes
// back to the copy of the run's start, with engineBoots above the 5 that
// run used. Whichever start follows, a crash of its run goes back to
// what that start read.
TEST(RunFiles, AKillAtEachStopStepLeavesTheLastCompletedStore) {
    set_end_step_hook(kill_at);
    const std::vector<std::optional<EndStep>> kills = {
        EndStep::check_store,   EndStep::drop_saved_copy, EndStep::drop_marker,
        EndStep::drop_pid_file, EndStep::release_lock,    std::nullopt};
    for (bool disk_full : {false, true}) {
        for (const auto &kill : kills) {
            SCOPED_TRACE(testing::Message() << "kill before step " << (kill ? int(*kill) : -1)
                                            << (disk_full ? ", disk full" : ""));
            RunDir run;
            std::ofstream(run.file) << "engineBoots 4\nsystem_role Old\n";
            ASSERT_EQ("engineBoots 4\nsystem_role Old\n", run.start());
            run.store(STORED_TEXT, disk_full ? 20 : std::string::npos);
            g_kill_at = kill;
            const bool complete = end_run(run.files, STORED, &run.pid_fd);
            EXPECT_EQ(complete, !disk_full && kill != EndStep::check_store &&
                                    kill != EndStep::drop_saved_copy);
            if (!kill || disk_full) { // a process that lives on closes its descriptors
                close(run.pid_fd);
                run.pid_fd = -1;
            }
            g_kill_at.reset();
            const std::string next = run.start();
            if (complete)
                EXPECT_EQ(STORED_TEXT, next);
            else
                EXPECT_EQ("engineBoots 5\nsystem_role Old\n", next);
            EXPECT_EQ(complete, read_text(run.copy) == STORED_TEXT) << "the next run's copy";
            close(run.pid_fd); // that run crashes: its start's values, engineBoots one up
            run.pid_fd = -1;
            std::string raised = next;
            raised.replace(raised.find("engineBoots 5"), 13, "engineBoots 6");
            EXPECT_EQ(raised, run.start());
        }
    }
    set_end_step_hook(nullptr);
}

// Crashes one after another each raise engineBoots once more: every run
// uses a value none before it used. A copy without engineBoots (no SNMPv3
// engine stored yet) comes back as it is.
TEST(RunFiles, CrashesOneAfterAnotherNeverReuseEngineBoots) {
    RunDir run;
    std::ofstream(run.file) << "engineboots 9\noldEngineID 0x80001f88\nsystem_role Old\n";
    run.start();
    for (int crash = 1; crash <= 3; ++crash) {
        close(run.pid_fd); // killed: pid file and marker stay
        run.pid_fd = -1;
        EXPECT_EQ("engineBoots " + std::to_string(9 + crash) +
                      "\noldEngineID 0x80001f88\nsystem_role Old\n",
                  run.start());
    }
    RunDir fresh;
    std::ofstream(fresh.file) << "system_role Old";
    fresh.start();
    close(fresh.pid_fd);
    fresh.pid_fd = -1;
    EXPECT_EQ("system_role Old", fresh.start());
}
