# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/GroupLog.cpp"
TESTS = ["FecTableEntryLogTest", "AgentCrashTest"]

MUTANTS = [
    ("group log's rows go before the applied version is there",
     """  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
  table.applied = applied.logVersion();
  raiseAnnounced(applied);
  std::deque<Pending>& rows = table.rows;
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    ZEV_TRACE(rowsTrace, 9, kClass, "row: {} dropped", rows.front().sequence);
    rows.pop_front();
  }
""",
     """  table.applied = applied.logVersion();
  raiseAnnounced(applied);
  std::deque<Pending>& rows = table.rows;
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
"""),
    ("announcement tells all of its rows from the start",
     "  const bool didFit = requestsFit();\n",
     "  const bool didFit = requestsFit();\n"
     "  log_->groupLog().control().scratchpadIs(\n"
     "      lastSequence_ + GroupLogRow::rowsFor(neededEntry ? neededEntry->tableVersions().size() : 0));\n",
     {"by": "AsicTest"}),
    ("each row of an operation is announced by itself",
     "  log_->groupLog().rowIs(row);\n  lastSequence_ = row.sequence();\n",
     "  log_->groupLog().rowIs(row);\n  lastSequence_ = row.sequence();\n"
     "  log_->groupLog().control().scratchpadIs(lastSequence_);\n", {"by": "AsicTest"}),
    ("row's place is lost to a later announcement",
     "  lastSequence_ = row.sequence();\n  table.rows.push_back(", "  table.rows.push_back(",
     {"by": "AsicTest"}),
    ("operation of two rows needs one version less",
     "  while (needed.size() > GroupLogRow::kNeededPerRow) {\n",
     "  while (needed.size() >= GroupLogRow::kNeededPerRow) {\n", {"by": "AsicTest"}),
    ("last row of an operation is marked continued",
     "needed, marks & ~GroupLogRow::kContinued});", "needed, marks});", {"by": "AsicTest"}),
    ("second row of an operation is no continuation",
     "    marks |= GroupLogRow::kContinuation;\n", "", {"by": "AsicTest"}),
    ("announcement is published before it stands",
     "  log_->groupLog().control().scratchpadIs(lastSequence_);\n  if (didFit",
     "  publisher().attributeChange(kGroupLogAttribute);\n"
     "  log_->groupLog().control().scratchpadIs(lastSequence_);\n  if (didFit", {"by": "AsicTest"}),
    ("group log is full in silence",
     '    ZEV_TRACE(trace, 3, kClass, "full: {} rows; requests are held back", logMap().rowCount());\n',
     "", {"by": "AsicTest"}),
    ("announcement does not count as announced",
     "  table.announced = std::max(table.announced, version);\n", "", {"by": "AsicTest"}),
    ("version below what was announced takes it back",
     "  announced = std::max(announced, tableVersion.logVersion());\n",
     "  announced = tableVersion.logVersion();\n", {"by": "AsicTest"}),
    ("table's last announced version is not announced",
     "  return table == nullptr ? LogVersion() : table->announced;",
     "  return table == nullptr || !table->announced.value()\n"
     "             ? LogVersion()\n"
     "             : LogVersion(table->announced.value() - 1);", {"by": "AsicTest"}),
    ("table that announced nothing has announced everything",
     "  return table == nullptr ? LogVersion() : table->announced;",
     "  return table == nullptr ? LogVersion(~0ULL) : table->announced;", {"by": "AsicTest"}),
    ("report below the recorded version is recorded",
     "  if (applied.logVersion() < table.applied) {\n", "  if (false) {\n", {"by": "AsicTest"}),
    ("report of the recorded version is nothing new",
     "  if (applied.logVersion() < table.applied) {\n",
     "  if (applied.logVersion() <= table.applied) {\n",
     {"by": "AsicTest"}),
    ("report leaves the row of its own version",
     "rows.front().version <= applied.logVersion()) {", "rows.front().version < applied.logVersion()) {",
     {"by": "AsicTest"}),
    ("report is not told to observers",
     "  publisher().attributeChange(kAppliedVersionsAttribute);\n", "", {"by": "AsicTest"}),
    ("start forgets what earlier rows announced",
     "    raiseAnnounced(row.tableVersion);\n    tables_[", "    tables_[", {"by": "AsicTest"}),
    ("start forgets what was recorded as applied",
     "        raiseAnnounced(row.tableVersion());\n        tables_", "        tables_", {"by": "AsicTest"}),
    ("start knows of nothing that was applied",
     "        tables_[row.tableVersion().tableId()].applied = row.tableVersion().logVersion();\n", "",
     {"by": "AsicTest"}),
    ("report is not remembered",
     "  table.applied = applied.logVersion();\n", "", {"by": "AsicTest"}),
    ("start writes over rows beyond the scratchpad",
     "    lastSequence_ = std::max(lastSequence_, row.sequence);\n", "", {"by": "AsicTest"}),
    ("start keeps rows beyond the scratchpad from readers",
     "control.scratchpad() != lastSequence_) {\n", "false) {\n", {"by": "AsicTest"}),
    ("start takes rows in slot order",
     "            [](const Found& a, const Found& b) { return a.sequence < b.sequence; });\n",
     "            [](const Found&, const Found&) { return false; });\n", {"by": "AsicTest"}),
    ("room for re-drives shrinks with requests",
     "std::max(rows.rowCount(), rows.capacity())", "rows.rowCount()", {"by": "AsicTest"}),
    ("room for re-drives does not know of other re-drives",
     "std::max(rows.rowCount(), rows.capacity())", "rows.capacity()", {"by": "AsicTest"}),
]
