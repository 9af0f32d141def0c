# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/include/Asic/Constants.h"
TESTS = ["AsicTest", "RecordsTest"]

MUTANTS = [
    ("logs have no room for the last unit's re-drive",
     "kRedriveRows = kMaxUnits * kUnitCapacity;", "kRedriveRows = (kMaxUnits - 1) * kUnitCapacity;"),
    ("unit holds one entry fewer", "kUnitCapacity = 65536;", "kUnitCapacity = 65535;"),
    ("agent drives one unit fewer", "kMaxUnits = 16;", "kMaxUnits = 15;"),
]
