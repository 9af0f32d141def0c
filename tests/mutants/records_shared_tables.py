# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/records/include/records/FecSharedTables.h"
TESTS = ["FecTableEntryLogTest", "RecordsTest"]

MUTANTS = [
    ("log is mounted one row short",
     "kCapacity = FecTableConstants::kEntryLogCapacity;",
     "kCapacity = FecTableConstants::kEntryLogCapacity - 1;"),
    ("configuration table is mounted one row short",
     "kCapacity = FecTableConstants::kConfigCapacity;",
     "kCapacity = FecTableConstants::kConfigCapacity - 1;"),
]
