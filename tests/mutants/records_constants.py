# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/records/include/records/FecTableConstants.h"
TESTS = ["RecordsTest"]

MUTANTS = [
    ("FEC table has another id", "kTableId{0x03010805}", "kTableId{0x03010806}"),
    ("FEC table has another name", 'kTableName = "FecTable"', 'kTableName = "Fectable"'),
    ("log's capacity is one fewer", "kEntryLogCapacity = 100000;", "kEntryLogCapacity = 99999;"),
    ("unit's capacity is one fewer",
     "kConfigCapacity = Asic::Constants::kUnitCapacity;",
     "kConfigCapacity = Asic::Constants::kUnitCapacity - 1;"),
    ("agent has one unit fewer",
     "kMaxUnits = Asic::Constants::kMaxUnits;", "kMaxUnits = Asic::Constants::kMaxUnits - 1;"),
    ("clients are suspended one later", "kSuspendAbove = 9999;", "kSuspendAbove = 10000;"),
    ("clients are let on one later", "kResumeAtOrBelow = 7999;", "kResumeAtOrBelow = 8000;"),
]
