# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/GroupInterface.cpp"
TESTS = ["AsicTest"]

MUTANTS = [
    ("report above what was announced is believed",
     "  if (!groupLog_->isAnnounced(applied)) {\n", "  if (false) {\n"),
    ("refused report is not counted", "    ++refusedReports_;\n", ""),
    ("refused report is not traced",
     '    ZEV_TRACE(trace, 1, kClass, "refused: {} was never announced", applied);\n', ""),
    ("group is not held during a report",
     "  const Pell::Ptr<GroupInterface> self(this);\n", ""),
    ("report is recorded before tables hear of it",
     """  if (const Pell::Ptr<OrderedSwTableSet> set = swTableSet(applied.tableId())) {
    first.from([&] { set->tableStatusVersion(applied.logVersion()); });
  }
  first.from([&] { groupLog_->tableVersionIs(applied); });
""",
     """  first.from([&] { groupLog_->tableVersionIs(applied); });
  if (const Pell::Ptr<OrderedSwTableSet> set = swTableSet(applied.tableId())) {
    first.from([&] { set->tableStatusVersion(applied.logVersion()); });
  }
"""),
    ("table that throws keeps its report from the record",
     "    first.from([&] { set->tableStatusVersion(applied.logVersion()); });\n",
     "    set->tableStatusVersion(applied.logVersion());\n"),
    ("observer of the record keeps requests held back",
     "  first.from([&] { groupLog_->tableVersionIs(applied); });\n",
     "  groupLog_->tableVersionIs(applied);\n"),
    ("group passes no exception on",
     "  first.rethrow();\n", ""),
    ("report that makes room starts no generation",
     "    groupResolver_->updateGenId();\n", ""),
    ("every report starts a generation",
     "  if (!requestsFitted && groupLog_->requestsFit()) {\n",
     "  (void)requestsFitted;\n  if (groupLog_->requestsFit()) {\n"),
    ("report that leaves the group log full starts a generation",
     "  if (!requestsFitted && groupLog_->requestsFit()) {\n", "  if (!requestsFitted) {\n"),
    ("set is made anew for each table",
     "  if (!set) {\n    ZEV_TRACE(trace, 8, kClass, \"tableId: {}\", tableId);\n",
     "  {\n    ZEV_TRACE(trace, 8, kClass, \"tableId: {}\", tableId);\n"),
    ("group's end leaves the queue",
     "  groupResolver_->resolverQueueDelIf([](const ResolverEntry&) { return true; });\n", ""),
]
