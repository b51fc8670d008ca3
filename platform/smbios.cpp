// SPDX-License-Identifier: Apache-2.0
#include "platform/smbios.h"

#include "platform/host_files.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// Real tables are a few kB; anything near this is not a DMI table.
constexpr size_t kMaxTableSize = 1u << 20;

// The largest formatted area a one-byte length can announce is 255 bytes.
// Every structure is handed out from a copy padded with zeros to at least
// this size, so a caller reading a field that an older SMBIOS version did
// not have yet (the UUID of a version 2.0 type 1 structure, 8 bytes long)
// reads zeros instead of the next structure or past the table.
constexpr size_t kMinRecordSize = 256;

struct Structure {
    BYTE type;
    std::vector<BYTE> bytes; // formatted area, string set, zero padding
};

std::string s_raw;
std::vector<Structure> s_structures;
bool s_loaded = false;

// Splits the table into structures. Stops at the end-of-table structure
// (type 127) or at the first structure that does not fit in the table.
void index_table(const std::string &raw, std::vector<Structure> &out) {
    out.clear();
    const BYTE *t = reinterpret_cast<const BYTE *>(raw.data());
    const size_t size = raw.size();
    size_t off = 0;
    while (size - off >= sizeof(SMBIOS_HEADER)) {
        const BYTE type = t[off];
        const size_t len = t[off + 1];
        if (len < sizeof(SMBIOS_HEADER) || len > size - off) {
            return;
        }
        // The string set ends with two NULs; with no strings the two follow
        // the formatted area straight away.
        size_t end = off + len;
        while (end + 1 < size && !(t[end] == 0 && t[end + 1] == 0)) {
            ++end;
        }
        if (end + 1 >= size) {
            return;
        }
        end += 2;
        Structure s;
        s.type = type;
        s.bytes.assign(t + off, t + end);
        if (s.bytes.size() < kMinRecordSize) {
            s.bytes.resize(kMinRecordSize, 0);
        }
        out.push_back(std::move(s));
        if (type == 127) {
            return;
        }
        off = end;
    }
}

int load_table(void) {
    std::string raw;
    if (!platform::read_host_bytes("/sys/firmware/dmi/tables/DMI", raw, kMaxTableSize) ||
        raw.empty()) {
        s_raw.clear();
        s_structures.clear();
        s_loaded = false;
        return 0;
    }
    // The table does not change while the host runs: keep the records
    // (and the pointers already handed out) when it reads the same again.
    if (!s_loaded || raw != s_raw) {
        s_raw.swap(raw);
        index_table(s_raw, s_structures);
        s_loaded = true;
    }
    return 1;
}

} // namespace

int InitSMBIOS(void) {
    return platform::c_call(0, load_table);
}

int IsSMBIOSAvailable(void) {
    return s_loaded ? 1 : 0;
}

int SmbGetRecordByType(BYTE type, WORD copy, PVOID *record) {
    if (!record) {
        return 0;
    }
    *record = nullptr;
    WORD seen = 0;
    for (Structure &s : s_structures) {
        if (s.type != type) {
            continue;
        }
        if (seen++ == copy) {
            *record = s.bytes.data();
            return 1;
        }
    }
    return 0;
}
