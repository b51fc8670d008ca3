// SPDX-License-Identifier: Apache-2.0
// The software inventory's codes (interface/vorHoSwVer_interface.h), in a
// header of their own so that our checks and watch list (sw_checks.h,
// sw_watch.h) share them without depending on the inventory itself.
#pragma once

#define SWVER_NAME_MAX 63 // a package name is cut to this many characters
// ReadSwverEntry's callers supply a zeroed buffer of at least this size.
#define SWVER_VALUE_BUF 256

// Running state of a package.
#define SWVER_STATUS_UNKNOWN 1
#define SWVER_STATUS_RUNNING 2
#define SWVER_STATUS_STOPPED 3

// Package kinds given by the filters (an operator may set any of 1 to 5).
#define SWVER_TYPE_DRIVER 2
#define SWVER_TYPE_AGENT 3
#define SWVER_TYPE_UTILITY 4
#define SWVER_TYPE_APPLICATION 5
