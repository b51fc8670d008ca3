// SPDX-License-Identifier: Apache-2.0
// Solaris pkginfo stand-in; the format lives in platform/standins.cpp.
#include "platform/standins.h"

#include <iostream>

int main(int argc, char **argv) {
    return platform::run_pkginfo(argc, argv, std::cout, std::cerr);
}
