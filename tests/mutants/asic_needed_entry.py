# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/NeededEntry.cpp"
TESTS = ["AsicTest"]

MUTANTS = [
    ("lower version of a table is kept",
     "held->logVersion() < tableVersion.logVersion()", "tableVersion.logVersion() < held->logVersion()"),
    ("last version of a table is kept",
     "  } else if (held->logVersion() < tableVersion.logVersion()) {\n", "  } else {\n"),
    ("versions of a table are compared in 32 bits",
     "held->logVersion() < tableVersion.logVersion()",
     "static_cast<std::uint32_t>(held->logVersion().value()) <\n"
     "             static_cast<std::uint32_t>(tableVersion.logVersion().value())"),
    ("second version of a table is a second element",
     "    return held == versions_.end() ? nullptr : &*held;\n",
     "    return held == versions_.end() ? nullptr : nullptr;\n"),
    ("table that stands inline is not found by the index",
     "for (std::size_t at = 0; at < versions_.size(); ++at) {",
     "for (std::size_t at = versions_.size() - 1; at < versions_.size(); ++at) {"),
    ("index leaves the newest table out",
     "  index_->emplace(tableVersion.tableId(), versions_.size() - 1);\n", ""),
    ("index finds the table before",
     "&versions_[held->second];", "&versions_[held->second == 0 ? 0 : held->second - 1];"),
    ("index begins one table early",
     "    if (versions_.size() < kInlineTableVersions) {\n",
     "    if (versions_.size() + 1 < kInlineTableVersions) {\n",
     {"lives": "where the index begins decides on cost alone"}),
    ("merge takes the first of the other set alone",
     "      add(tableVersion);\n    }\n", "      add(tableVersion);\n      break;\n    }\n"),
    ("merge of null is looked into",
     "  if (other) {\n", "  {\n"),
]
