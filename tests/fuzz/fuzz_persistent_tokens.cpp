// SPDX-License-Identifier: Apache-2.0
// The persistent file's token parsers, fed as the library feeds them: a
// token, then the rest of the line as a writable value. Afterwards every
// value they keep must be within its field.
#include <cstring>
#include <string>

#include "interface/KyOrblHostSysStatus_interface.h"
#include "mib-extns/vorHoInfo.h"
#include "mib-extns/vorHoSysStatusGroup.h"
#include "mib-extns/vorMeMibGroup.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    static const bool ready = (do_init(), true); // the status record, without any query
    (void)ready;
    static const char *const tokens[] = {POLL_FREQ_TOKEN, HOST_GUID_TOKEN, SYS_ROLE_TOKEN,
                                         SYS_ROLE_DETAIL_TOKEN};
    if (size == 0) {
        return 0;
    }
    const char *token = tokens[data[0] % 4];
    std::string value(reinterpret_cast<const char *>(data) + 1, size - 1);
    value.resize(strnlen(value.c_str(), value.size())); // the library hands a C string
    load_Orbl_Host_OsComm_tokens(token, &value[0]);
    load_Orbl_Host_sysstatus_tokens(token, &value[0]);
    load_Orbl_Host_tokens(token, &value[0]);
    if (strlen(get_system_role()) > SYS_ROLE_MAX_LEN ||
        strlen(get_system_role_detail()) > SYS_ROLE_DETAIL_MAX_LEN || g_osCommonPollFrequency < 0) {
        __builtin_trap();
    }
    return 0;
}
