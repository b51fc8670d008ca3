// SPDX-License-Identifier: Apache-2.0
// Solaris svcs stand-in; the format lives in platform/standins.cpp.
#include "platform/standins.h"

#include <iostream>

int main(int argc, char **argv) {
    return platform::run_svcs(argc, argv, std::cout, std::cerr);
}
