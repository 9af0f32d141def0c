# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/OrderedSwTableSet.cpp"
TESTS = ["AsicTest"]

MUTANTS = [
    ("table that throws keeps other units from hearing",
     "    first.from([&] { table->tableStatusVersion(version); });\n",
     "    table->tableStatusVersion(version);\n"),
    ("set passes no exception on", "  first.rethrow();\n", ""),
    ("set is not held during a report",
     "  const Pell::Ptr<OrderedSwTableSet const> self(this);\n", ""),
    ("table is not held while it hears a report",
     "    const Pell::Ptr<OrderedSwTable> table = held;\n",
     "    OrderedSwTable* const table = held.get();\n"),
    ("second table of a unit is not taken",
     "  tables_.insertOrAssign(table->unitId(), table);\n",
     "  if (!tables_.has(table->unitId())) {\n"
     "    tables_.insertOrAssign(table->unitId(), table);\n  }\n"),
    ("last table tells for all whether writes are pending",
     "    pending = pending || table->status()->pendingHwWrites();\n",
     "    pending = table->status()->pendingHwWrites();\n"),
]
