// SPDX-License-Identifier: Apache-2.0
// SMBIOS tables of any shape: every record handed out must be readable for
// the 256 bytes a caller may look at (the UUID of a System Information
// record sits at offset 8).
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <string>

#include "platform/host_paths.h"
#include "platform/smbios.h"

namespace {

volatile unsigned s_sink; // keeps the reads from being optimised away

std::string make_root() {
    char dir[] = "/tmp/fuzz-smbios.XXXXXX";
    if (!mkdtemp(dir)) {
        abort();
    }
    const std::string root = dir;
    for (const char *sub :
         {"/sys", "/sys/firmware", "/sys/firmware/dmi", "/sys/firmware/dmi/tables"}) {
        mkdir((root + sub).c_str(), 0755);
    }
    platform::set_host_root(root);
    static std::string s_root = root;
    atexit([] { std::filesystem::remove_all(s_root); });
    return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    static const std::string root = make_root();
    FILE *f = fopen((root + "/sys/firmware/dmi/tables/DMI").c_str(), "wb");
    if (!f) {
        abort();
    }
    fwrite(data, 1, size, f);
    fclose(f);
    if (!InitSMBIOS()) {
        return 0;
    }
    for (BYTE type : {0, 1, 2, 127}) {
        for (WORD copy = 0; copy < 3; ++copy) {
            PVOID record = nullptr;
            if (SmbGetRecordByType(type, copy, &record) && record) {
                unsigned sum = 0;
                for (int i = 0; i < 256; ++i) {
                    sum += static_cast<const BYTE *>(record)[i];
                }
                s_sink = s_sink + sum;
            }
        }
    }
    return 0;
}
