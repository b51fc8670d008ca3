// SPDX-License-Identifier: Apache-2.0
// What the command stand-ins parse (the dpkg status file for pkginfo,
// /proc/modules for modinfo, /proc/net/tcp for svcs), and what the providers
// parse of the commands' output: the software inventory's pkginfo listing
// and the CPU sampler's psrinfo listing.
#include <cstdio>
#include <sstream>
#include <string>

#include "interface/KyOrblHostCpu_interface.h"
#include "interface/vorHoSwVer_interface.h"
#include "platform/standins.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    {
        std::istringstream in(text);
        platform::pkginfo_listing(in);
    }
    {
        std::istringstream in(text);
        platform::modinfo_listing(in);
    }
    {
        std::istringstream in(text);
        platform::has_telnet_listener(in);
    }
    {
        std::istringstream in(text);
        platform::inetd_conf_enables_telnet(in);
    }
    if (size > 0) {
        FILE *fp = fmemopen(const_cast<unsigned char *>(data), size, "r");
        if (fp) {
            unsigned char online[64] = {};
            mark_online_processors(fp, online, 64);
            rewind(fp);
            read_pkg_listing(fp, [](int, const char *) { return 1; });
            cleanup_swver_list();
            fclose(fp);
        }
    }
    return 0;
}
