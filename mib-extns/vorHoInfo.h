// SPDX-License-Identifier: Apache-2.0
// Host information group: OS name, release, description, type and telnet
// state, and the operator-set system role and role detail.
#pragma once

#include <cstddef>

#include "interface/net_snmp.h"

// What the role objects hold once stored while they were empty.
inline constexpr char DUMMY_SYS_ROLE_STR[] = "Enter System Role";
inline constexpr char DUMMY_SYS_ROLE_DET_STR[] = "Enter System role details";

// Longest role and role detail in characters; their buffers hold one more.
#define SYS_ROLE_MAX_LEN 64
#define SYS_ROLE_DETAIL_MAX_LEN 512

void init_vorHoInfo(void);

#define SYS_ROLE_TOKEN "system_role"
#define SYS_ROLE_DETAIL_TOKEN "system_role_detail"

// The role tokens of the persistent file: registers both and the callback
// that runs once the configuration has been read.
int initPersistance(void);
// Parser of both role tokens; ignores other tokens.
void load_Orbl_Host_tokens(const char *token, char *cptr);
// After the configuration has been read: registers hostInfo_store_config
// as the last store callback, then starts the persistent file anew, so the
// values live in memory until the clean stop stores them.
int hostinfo_post_read_config(int majorID, int minorID, void *serverarg, void *clientarg);
// Store callback: empty roles become the default texts (in memory too), then
// both lines are stored whole.
int hostInfo_store_config(int majorID, int minorID, void *serverarg, void *clientarg);

Netsnmp_Node_Handler get_vorHoName;
Netsnmp_Node_Handler get_vorHoVersion;
Netsnmp_Node_Handler get_vorHoDesc;
Netsnmp_Node_Handler get_vorHoOsType;
Netsnmp_Node_Handler get_vorHoTelnet;
Netsnmp_Node_Handler do_vorHoSystemRole;
Netsnmp_Node_Handler do_vorHoSystemRoleDetail;

// The role buffers as the persistent-state code loads and stores them. The
// setters clear the buffer and copy at most the object's limit of len bytes,
// so a longer value read from the file is cut, and the result is always
// NUL-terminated. Both buffers are empty until something is loaded or set.
const char *get_system_role(void);
const char *get_system_role_detail(void);
void set_system_role(const char *value, size_t len);
void set_system_role_detail(const char *value, size_t len);
