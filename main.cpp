// SPDX-License-Identifier: Apache-2.0
// Entry point only: everything else lives in the library the unit tests link.
#include "temhostd.h"

int main(int argc, char **argv) {
    return temhostd_main(argc, argv);
}
