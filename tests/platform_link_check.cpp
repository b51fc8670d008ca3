// SPDX-License-Identifier: Apache-2.0
// Linked with every object of the platform library and the threads library
// only (CMakeLists.txt): a symbol the platform takes from Net-SNMP or from a
// layer above is left undefined, and the build stops here.
int main() {
    return 0;
}
