# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/records/FecTableConstants.cpp"
TESTS = ["RecordsTest", "FecTableInterfaceStepsTest"]

MUTANTS = [
    ("configuration tables of all units have one name",
     'fmt::format("{}.{}.unit{}.config", kGroupName, kTableName, unitId)',
     'fmt::format("{}.{}.unit.config", kGroupName, kTableName)'),
    ("log has another name",
     "tableEntryLogGlintPath(kGroupName, kAgentName, kTableName)",
     "tableEntryLogGlintPath(kGroupName, kAgentName, kAgentName)"),
    ("group log has the name of the applied versions",
     "return Asic::Constants::groupLogGlintPath(", "return Asic::Constants::groupVersionsGlintPath("),
    ("applied versions have the name of the group log",
     "return Asic::Constants::groupVersionsGlintPath(", "return Asic::Constants::groupLogGlintPath("),
]
