#include <unistd.h>

#include <climits>

#include <gtest/gtest.h>

#include "interface/KyOrblHostMemory_interface.h"
#include "mib-extns/vorHoMemoryGroup.h"
#include "platform/swapctl.h"
#include "tests/unit/agent_request.h"

namespace {

// A host with whatever page size and memory a test needs.
struct FakeHost {
    long pagesize = 4096;
    long phys_pages = 0;
    uint64_t freemem = 0;
    int swap_rc = 0;
    anoninfo swap{};
} fake;

long fake_sysconf(int name) {
    return name == _SC_PAGESIZE ? fake.pagesize : fake.phys_pages;
}
int fake_getpagesize(void) {
    return static_cast<int>(fake.pagesize);
}
uint64_t fake_freemem(void) {
    return fake.freemem;
}
int fake_swapctl(int, void *arg) {
    *static_cast<anoninfo *>(arg) = fake.swap;
    return fake.swap_rc;
}
const MemorySource fake_source = {fake_sysconf, fake_getpagesize, fake_freemem, fake_swapctl};

struct HostMemory : ::testing::Test {
    void SetUp() override {
        fake = FakeHost{};
        set_memory_source(&fake_source);
        p_pagetok = nullptr;
    }
    void TearDown() override {
        set_memory_source(nullptr);
        p_pagetok = nullptr;
    }
    void page_size(long bytes) {
        fake.pagesize = bytes;
        p_pagetok = nullptr; // the converter is otherwise chosen once per process
    }
};

TEST_F(HostMemory, FiguresAtEachPageSize) {
    fake.phys_pages = 262144;
    fake.freemem = 1000;
    fake.swap = {131072, 0, 32768};
    struct Case {
        long pagesize;
        pagetok_t converter;
        int phys, free;
        long swap, swap_free;
    };
    for (const Case &c :
         {Case{4096, pagetok_left, 1025, 3, 512, 384},
          Case{6144, pagetok_left, 1025, 5, 512, 384}, // log2 floor for totals
          Case{1024, pagetok_none, 257, 0, 128, 96}, Case{512, pagetok_right, 129, 0, 64, 48}}) {
        page_size(c.pagesize);
        EXPECT_EQ(c.phys, get_PhysicalMemorySizeMB()) << c.pagesize;
        EXPECT_EQ(c.converter, p_pagetok) << c.pagesize;
        EXPECT_EQ(c.free, get_PhysicalMemoryFreeMB()) << c.pagesize;
        EXPECT_EQ(c.swap, get_VirtualMemorySizeMB()) << c.pagesize;
        EXPECT_EQ(c.swap_free, get_VirtualMemoryFreeMB()) << c.pagesize;
    }
    fake.pagesize = 4096;
    init_pagetok();
    EXPECT_EQ(pagetok_right, p_pagetok) << "the first choice stays";
}

TEST_F(HostMemory, FailuresGiveTheFallbackFigures) {
    fake.freemem = UINT64_MAX; // kernel statistic unreadable
    EXPECT_EQ(0, get_PhysicalMemoryFreeMB());
    for (long size : {4096L, 512L}) {
        page_size(size);
        fake.phys_pages = -1; // sysconf failed
        EXPECT_EQ(1, get_PhysicalMemorySizeMB()) << size;
    }
    fake.swap = {131072, 0, 32768};
    fake.swap_rc = -1;
    EXPECT_EQ(0, get_VirtualMemorySizeMB());
    EXPECT_EQ(0, get_VirtualMemoryFreeMB());
    fake.swap_rc = 0;
    fake.swap = {0, 0, 0}; // no swap configured
    EXPECT_EQ(0, get_VirtualMemorySizeMB());
    EXPECT_EQ(0, get_VirtualMemoryFreeMB());
}

TEST_F(HostMemory, HostsBeyondTwoTebibytes) {
    fake.phys_pages = 1L << 30; // 4 TiB: 2^32 KB wraps in 32 bits
    fake.swap = {1UL << 30, 0, 1UL << 28};
    fake.freemem = 1ULL << 33; // its low 32 bits alone read 0
    EXPECT_EQ(4194305, get_PhysicalMemorySizeMB());
    EXPECT_EQ(4194304, get_VirtualMemorySizeMB());
    EXPECT_EQ(3145728, get_VirtualMemoryFreeMB());
    EXPECT_EQ(33554432, get_PhysicalMemoryFreeMB());

    fake.phys_pages = 1L << 42; // past a 32-bit INTEGER even in MB
    fake.freemem = 1ULL << 42;
    fake.swap = {1UL << 42, 0, 0};
    EXPECT_EQ(INT_MAX, get_PhysicalMemoryFreeMB());
    EXPECT_EQ(INT_MAX, get_VirtualMemoryFreeMB());
    for (Netsnmp_Node_Handler *h : {get_vorHoPhysicalMemorySize, get_vorHoPagingMemorySize}) {
        AgentRequest r;
        EXPECT_EQ(SNMP_ERR_NOERROR, r.run(h, MODE_GET));
        EXPECT_EQ(ASN_INTEGER, r.var.type);
        EXPECT_EQ(INT_MAX, r.integer_value());
        r.integer(7);
        EXPECT_EQ(SNMP_ERR_GENERR, r.run(h, MODE_SET_ACTION));
        EXPECT_EQ(7, r.integer_value()) << "only a GET sets the value";
    }
}

TEST(HostMemoryLive, FiguresAgreeWithTheHost) {
    p_pagetok = nullptr;
    const int64_t kb = static_cast<int64_t>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE) / 1024;
    EXPECT_EQ(kb / 1024 + 1, get_PhysicalMemorySizeMB());
    EXPECT_GT(get_PhysicalMemoryFreeMB(), 0);
    EXPECT_LE(get_PhysicalMemoryFreeMB(), get_PhysicalMemorySizeMB());
    EXPECT_GE(get_VirtualMemoryFreeMB(), 0);
    EXPECT_LE(get_VirtualMemoryFreeMB(), get_VirtualMemorySizeMB());
}

} // namespace
