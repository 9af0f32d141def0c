# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/EntryLogBase.cpp"
TESTS = ["FecTableCommitStepsTest", "AsicTest"]

MUTANTS = [
    ("increment answers with the version before",
     "  tableVersion_ = LogVersion(tableVersion_.value() + increment.value());\n  return tableVersion_;\n",
     "  const LogVersion before = tableVersion_;\n"
     "  tableVersion_ = LogVersion(tableVersion_.value() + increment.value());\n  return before;\n"),
    ("version does not rise",
     "  tableVersion_ = LogVersion(tableVersion_.value() + increment.value());\n  return tableVersion_;\n",
     "  return LogVersion(tableVersion_.value() + increment.value());\n"),
    ("version rises by one whatever is asked for",
     "tableVersion_.value() + increment.value()", "tableVersion_.value() + 1", {"by": "AsicTest"}),
    ("version rises in 32 bits",
     "LogVersion(tableVersion_.value() + increment.value())",
     "LogVersion(static_cast<std::uint32_t>(tableVersion_.value() + increment.value()))"),
]
