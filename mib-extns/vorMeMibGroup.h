// SPDX-License-Identifier: Apache-2.0
// MIB revision, condition and poll-frequency group.
#pragma once

#include "interface/net_snmp.h"

// Period of the general refresh in seconds; 0 means periodic polling is off
// and the tables refresh on demand instead.
extern int g_osCommonPollFrequency;
extern int g_MIbCond;

#define POLL_FREQ_TOKEN "defaultPollFreq(sec)"
#define POLL_FREQ_MIN 5
#define POLL_FREQ_MAX 900

void init_vorMeMibGroup(void);
void init_vorMeMibRevMajor(void);
void init_vorMeMibRevMinor(void);
void init_vorMeMibCondition(void);
void init_vorMeOsCommonPollFreq(void);
void set_mib_condition(int condition);

Netsnmp_Node_Handler get_vorMeMibRevMajor;
Netsnmp_Node_Handler get_vorMeMibRevMinor;
Netsnmp_Node_Handler get_vorMeMibCondition;
Netsnmp_Node_Handler do_vorMeOsCommonPollFreq;

// Persistent token of the poll frequency: parser and store callback.
void load_Orbl_Host_OsComm_tokens(const char *token, char *cptr);
int store_Orbl_Host_tokens(int majorID, int minorID, void *serverarg, void *clientarg);
