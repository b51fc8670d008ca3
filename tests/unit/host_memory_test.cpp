// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <climits>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostMemory_interface.h"
#include "platform/swapctl.h"

namespace {

// A host with whatever page size and memory a test needs.
struct FakeHost {
    long pagesize = 4096, phys_pages = 0;
    uint64_t freemem = 0;
    int swap_rc = 0;
    anoninfo swap{};
} fake;

const MemorySource fake_source = {
    [](int name) { return name == _SC_PAGESIZE ? fake.pagesize : fake.phys_pages; },
    [] { return static_cast<int>(fake.pagesize); }, [] { return fake.freemem; },
    [](int, void *arg) {
        *static_cast<anoninfo *>(arg) = fake.swap;
        return fake.swap_rc;
    }};

struct HostMemory : ::testing::Test {
    void SetUp() override {
        fake = FakeHost{};
        set_memory_source(&fake_source);
        p_pagetok = nullptr;
    }
    void TearDown() override { set_memory_source(nullptr), p_pagetok = nullptr; }
    void page_size(long bytes) {
        fake.pagesize = bytes;
        p_pagetok = nullptr; // the converter is otherwise chosen once per process
    }
    // Physical size and free, virtual size and free, in MB.
    static std::vector<long> figures() {
        return {get_PhysicalMemorySizeMB(), get_PhysicalMemoryFreeMB(), get_VirtualMemorySizeMB(),
                get_VirtualMemoryFreeMB()};
    }
};

TEST_F(HostMemory, FiguresAtEachPageSize) {
    fake.phys_pages = 262144, fake.freemem = 1000, fake.swap = {131072, 0, 32768};
    const struct {
        long pagesize;
        int phys, free;
        long swap, swap_free;
    } cases[] = {{4096, 1025, 3, 512, 384},
                 {6144, 1025, 5, 512, 384}, // totals convert with the log2 floor
                 {1024, 257, 0, 128, 96},
                 {512, 129, 0, 64, 48}};
    for (const auto &c : cases) {
        page_size(c.pagesize);
        EXPECT_EQ((std::vector<long>{c.phys, c.free, c.swap, c.swap_free}), figures())
            << c.pagesize;
    }
}

TEST_F(HostMemory, FailuresGiveTheFallbackFigures) {
    fake.freemem = UINT64_MAX; // kernel statistic unreadable
    EXPECT_EQ(0, get_PhysicalMemoryFreeMB());
    for (long size : {4096L, 512L}) {
        page_size(size);
        fake.phys_pages = -1; // sysconf failed
        EXPECT_EQ(1, get_PhysicalMemorySizeMB()) << size;
    }
    fake.swap = {131072, 0, 32768}, fake.swap_rc = -1;
    EXPECT_EQ(0, get_VirtualMemorySizeMB());
    EXPECT_EQ(0, get_VirtualMemoryFreeMB());
}

TEST_F(HostMemory, HostsBeyondTwoTebibytes) {
    fake.phys_pages = 1L << 30, fake.swap = {1UL << 30, 0, 1UL << 28}; // 2^32 KB wraps in 32 bits
    fake.freemem = 1ULL << 33; // its low 32 bits alone read 0
    EXPECT_EQ((std::vector<long>{4194305, 33554432, 4194304, 3145728}), figures());

    fake.phys_pages = 1L << 42, fake.freemem = 1ULL << 42; // past a 32-bit INTEGER even in MB
    fake.swap = {1UL << 42, 0, 0};
    EXPECT_EQ(std::vector<long>(4, INT_MAX), figures());
}

} // namespace
