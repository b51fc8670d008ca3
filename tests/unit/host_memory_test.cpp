// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <climits>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostMemory_interface.h"
#include "platform/swapctl.h"

namespace {

// A host with whatever memory a test needs, 4 kB pages.
struct FakeHost {
    long phys_pages;
    uint64_t freemem;
    anoninfo swap;
} fake;

const MemorySource fake_source = {
    [](int name) { return name == _SC_PAGESIZE ? 4096L : fake.phys_pages; }, [] { return 4096; },
    [] { return fake.freemem; },
    [](int, void *arg) {
        *static_cast<anoninfo *>(arg) = fake.swap;
        return 0;
    }};

// Physical size and free, paging space size and free, in MB.
std::vector<long> figures() {
    return {get_PhysicalMemorySizeMB(), get_PhysicalMemoryFreeMB(), get_VirtualMemorySizeMB(),
            get_VirtualMemoryFreeMB()};
}

TEST(HostMemory, SizeRoundsUpReservedSwapIsNotFreeAndHugeHostsSaturate) {
    set_memory_source(&fake_source);
    p_pagetok = nullptr; // the converter is otherwise chosen once per process
    fake = {262144, 1000, {131072, 0, 32768}};
    EXPECT_EQ((std::vector<long>{1025, 3, 512, 384}), figures());
    fake = {1L << 42, 1ULL << 42, {1UL << 42, 0, 0}}; // past a 32-bit INTEGER even in MB
    EXPECT_EQ(std::vector<long>(4, INT_MAX), figures());
    set_memory_source(nullptr);
    p_pagetok = nullptr;
}

} // namespace
