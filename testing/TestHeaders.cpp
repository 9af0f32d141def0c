// SPDX-License-Identifier: Apache-2.0

// Nothing but its precompiled headers is of use.
int main() { return 0; }
