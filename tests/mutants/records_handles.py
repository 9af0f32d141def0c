# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/records/FecTableDataModelSwTableBase.cpp"
TESTS = ["RecordsTest", "FecTableCommitStepsTest", "FecTableReadsTest"]

MUTANTS = [
    ("iterator starts before its first entry",
     "    : state_(std::move(state)) {\n  state_->maybeUpdateCurrentEntry();\n",
     "    : state_(std::move(state)) {\n", {"by": "FecTableReadsTest"}),
    ("handle does not know its table",
     "table == nullptr ? Asic::SwTableId() : table->tableId()", "Asic::SwTableId()"),
    ("handle forgets its version", "      version_(version),\n", ""),
    ("handle forgets its key", "      key_(key),\n", ""),
]
