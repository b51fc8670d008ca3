// SPDX-License-Identifier: Apache-2.0
// Net-SNMP's headers in the order they must be included.
#pragma once

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
