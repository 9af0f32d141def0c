# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/records/FecTableConstants.cpp"
TESTS = ["RecordsTest", "FecTableInterfaceStepsTest"]

MUTANTS = [
    ("configuration tables of all units have one name",
     'fmt::format("{}.{}.unit{}.config", kGroupName, kTableName, unitId)',
     'fmt::format("{}.{}.unit.config", kGroupName, kTableName)'),
]
