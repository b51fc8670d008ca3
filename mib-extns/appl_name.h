// SPDX-License-Identifier: Apache-2.0
// The application name alone, for the modules that register configuration
// under it: only the poll-frequency group needs the rest of temhostd.h.
#pragma once

// The application name: log identity, and the configuration type under
// which the persistent tokens are stored.
#define APPL_NAME "temhostd"
