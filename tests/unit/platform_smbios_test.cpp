// SPDX-License-Identifier: Apache-2.0
// SMBIOS structure walking over hand-built DMI tables.
#include "platform/smbios.h"
#include "unit_helpers.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// One structure: header, formatted area (length taken from it), strings.
std::string structure(BYTE type, std::string formatted, std::string strings = "") {
    return std::string{static_cast<char>(type), static_cast<char>(4 + formatted.size()), 1, 0} +
           formatted + strings + std::string(strings.empty() ? 2 : 1, '\0');
}

const std::string kUuid = "\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f";
// Type 1, SMBIOS 2.1+: four string numbers, the UUID, the wake-up type.
const std::string kSystem = structure(1, std::string("\x01\x02\x00\x00", 4) + kUuid + "\x06",
                                      std::string("Maker\0Model", 11) + '\0');
const std::string kBios = structure(0, std::string(14, '\x01'), std::string("Vendor", 6) + '\0');

struct PlatformSmbios : ::testing::Test {
    ScratchDir root{true};
    void TearDown() override { platform::set_host_root(""), InitSMBIOS(); } // forget the table
    void load(const std::string &table) {
        root.write("sys/firmware/dmi/tables/DMI", table);
        InitSMBIOS();
    }
    static SMBIOS_SYSTEM_INFORMATION *system_info(WORD copy = 0) {
        PVOID rec = nullptr;
        return SmbGetRecordByType(1, copy, &rec) ? static_cast<SMBIOS_SYSTEM_INFORMATION *>(rec)
                                                 : nullptr;
    }
    static std::string uuid(SMBIOS_SYSTEM_INFORMATION *si) {
        return {reinterpret_cast<char *>(si->sUUID), 16};
    }
};

TEST_F(PlatformSmbios, CopiesOfATypeUpToTheEndStructureAndOldOnesPadded) {
    std::string second = kSystem;
    second[8] = '\x77';
    load(kBios + kSystem + second + structure(127, "") + kSystem);
    SMBIOS_SYSTEM_INFORMATION *si = system_info();
    ASSERT_NE(si, nullptr);
    EXPECT_EQ(uuid(si), kUuid);
    ASSERT_NE(system_info(1), nullptr);
    EXPECT_EQ(system_info(1)->sUUID[0], 0x77);
    EXPECT_EQ(system_info(2), nullptr);
    InitSMBIOS();
    EXPECT_EQ(system_info(), si) << "records stay put while the table is unchanged";
    // SMBIOS 2.0 type 1 ends before the UUID; what follows must not show
    // through where the UUID would be.
    load(structure(1, std::string("\x01\x02\x03\x04", 4)) + std::string(40, '\x55'));
    ASSERT_NE(si = system_info(), nullptr);
    EXPECT_EQ(si->Header.byLength, 8);
    EXPECT_EQ(uuid(si), std::string(16, '\0'));
}

TEST_F(PlatformSmbios, DamagedTablesEndTheWalkWithoutOverrunning) {
    const std::pair<const char *, std::string> cases[] = {
        {"truncated in the strings", kBios + kSystem.substr(0, kSystem.size() - 3)},
        {"length past the end", kBios + kSystem.substr(0, 20)},
        {"no string terminator", kBios + kSystem.substr(0, kSystem.size() - 2) + "x"},
        {"length below 4", kBios + std::string("\x02\x03\x00\x00\x00\x00", 6) + kSystem},
        {"header cut short", kBios + std::string("\x01\x19", 2)},
    };
    for (const auto &[what, table] : cases) {
        load(table);
        PVOID rec;
        EXPECT_EQ(SmbGetRecordByType(0, 0, &rec), 1) << what;
        EXPECT_EQ(system_info(), nullptr) << what;
    }
}

} // namespace
