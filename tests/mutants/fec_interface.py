# SPDX-License-Identifier: Apache-2.0

FILE = "src/fec/FecTableInterface.cpp"
TESTS = ["FecTableInterfaceStepsTest", "FecTableInterfaceTest"]

MUTANTS = [
    ("ordered table is named without its group",
     'return "OrderedSwTable." + first_ + "." + second_;', 'return "OrderedSwTable." + second_;',
     {"by": "FecTableInterfaceTest"}),
    ("partially ordered table is named with its group",
     'return "PartiallyOrderedSwTable." + second_;',
     'return "PartiallyOrderedSwTable." + first_ + "." + second_;', {"by": "FecTableInterfaceTest"}),
    ("resource table is named with its group",
     'return "ResourceTable." + second_;', 'return "ResourceTable." + first_ + "." + second_;',
     {"by": "FecTableInterfaceTest"}),
    ("table of no kind has a name",
     'PELL_ASSERT_MESSAGE(false, "\\"false\\" == nullptr", "Table type undefined!");', "",
     {"by": "FecTableInterfaceTest"}),
    ("second interface is made in silence",
     'PELL_ASSERT_MESSAGE(!singleton->swTableIntfHas(kRegisteredName),',
     'PELL_ASSERT_MESSAGE(true || !singleton->swTableIntfHas(kRegisteredName),',
     {"by": "FecTableInterfaceTest"}),
    ("interface that is registered is made anew",
     "if (const auto registered = registry()->swTableIntf(kRegisteredName)) {",
     "if (const auto registered = registry()->swTableIntf(kRegisteredName); false) {",
     {"by": "FecTableInterfaceTest"}),
    ("interface is not registered",
     "  singleton->swTableIntfIs(kRegisteredName, Pell::Ptr<Asic::TableInterfaceBase>(this));\n", "",
     {"by": "FecTableInterfaceTest"}),
    ("log is not cleaned at the start",
     "  cleanUpToCommittedVersion(*group);\n", ""),
    ("start is traced before the log is cleaned",
     """  cleanUpToCommittedVersion(*group);
  ZEV_TRACE(trace, 2, kClass, " Entry log created for table id: {} at version: {}", tableId,
            entryLog_->tableVersion());
""",
     """  ZEV_TRACE(trace, 2, kClass, " Entry log created for table id: {} at version: {}", tableId,
            entryLog_->tableVersion());
  cleanUpToCommittedVersion(*group);
"""),
    ("group gets no set of software tables",
     "  group->swTableSetIs(tableId);\n", "", {"by": "FecTableInterfaceTest"}),
    ("clean-up at the start is not traced",
     """  ZEV_TRACE_AS(trace, 3, kClass, "handleInitialized", " Cleaned entry log until table version: {}",
               *version);
""", ""),
    ("clean-up at the start is traced before it",
     """  entryLog_->cleanupEntryLog(*version);
  ZEV_TRACE_AS(trace, 3, kClass, "handleInitialized", " Cleaned entry log until table version: {}",
               *version);
""",
     """  ZEV_TRACE_AS(trace, 3, kClass, "handleInitialized", " Cleaned entry log until table version: {}",
               *version);
  entryLog_->cleanupEntryLog(*version);
"""),
    ("flag goes up at the start though everything is applied",
     "  if (entryLog_->tableVersion() > *version) {\n", "  if (entryLog_->tableVersion() >= *version) {\n"),
    ("flag stays down at the start though rows wait",
     "    swTableStatus_->pendingHwWritesIs(true);\n", ""),
    ("new unit's clear goes without its trace",
     """  if (reset) {
    ZEV_TRACE(trace, 2, kClass, " Clearing entries for table id: {}", tableId);
    table->clearTable(false);
""", """  if (reset) {
    table->clearTable(false);
"""),
    ("unit that is there is returned without a trace",
     '    ZEV_TRACE(trace, 3, kClass, "swTable with unitId: {} exists", unitId);\n', ""),
    ("helper of a unit that is there stays",
     "      existing->swTableHelperIs(swTableHelper);\n", ""),
    ("helper of a unit that is there is taken away",
     """    if (swTableHelper) {
      ZEV_TRACE(trace, 2, kClass, "Update software table helper");
      existing->swTableHelperIs(swTableHelper);
    }
""", "    existing->swTableHelperIs(swTableHelper);\n"),
    ("unit that is there is cleared before it gets its helper",
     """    if (swTableHelper) {
      ZEV_TRACE(trace, 2, kClass, "Update software table helper");
      existing->swTableHelperIs(swTableHelper);
    }
    if (reset) {
""", """    if (reset) {
      existing->clearTable(false);
    }
    if (swTableHelper) {
      ZEV_TRACE(trace, 2, kClass, "Update software table helper");
      existing->swTableHelperIs(swTableHelper);
    }
    if (false) {
"""),
    ("unit that is there is not cleared",
     "      existing->clearTable(false);\n", ""),
    ("reset of a live table releases its resources",
     "      existing->clearTable(false);\n", "      existing->clearTable(true);\n"),
    ("new unit is not mounted",
     "  entryLog_->mountGlintConfig(unitId);\n", ""),
    ("new unit's helper is not installed",
     "    table->swTableHelperIs(swTableHelper);\n", "", {"by": "FecTableInterfaceTest"}),
    ("new unit is cleared with its resources",
     "    table->clearTable(false);\n", "    table->clearTable(true);\n"),
    ("new unit is not cleared",
     "    table->clearTable(false);\n", ""),
    ("new unit is restored though it was reset",
     "  } else {\n    ZEV_TRACE(trace, 2, kClass, \" Restoring", "  }\n  {\n    ZEV_TRACE(trace, 2, kClass, \" Restoring"),
    ("restore comes before the clear",
     "  if (reset) {\n    ZEV_TRACE(trace, 2, kClass, \" Clearing entries for table id: {}\", tableId);\n    table->",
     "  if (reset) {\n    table->restoreEntries();\n    ZEV_TRACE(trace, 2, kClass, \" Clearing entries for table id: {}\", tableId);\n    table->"),
    ("new unit is not restored",
     "    table->restoreEntries();\n", ""),
    ("new unit is not kept",
     "  swTableIs(unitId, table);\n", ""),
    ("new unit hears no reports",
     "  group->swTableSet(tableId)->swTableIs(table);\n", ""),
    ("log of other arguments is kept",
     "                         entryLog_->entityManager() == entityManager &&\n", "",
     {"by": "FecTableInterfaceTest"}),
    ("log of another group log is kept",
     "entryLog_->entityManager() == entityManager &&\n"
     "                         entryLog_->groupLogInterface() == groupLogInterface;",
     "entryLog_->entityManager() == entityManager;", {"by": "FecTableInterfaceTest"}),
    ("log of another table id is kept",
     "const bool unchanged = entryLog_ && entryLog_->tableId() == tableId &&",
     "const bool unchanged = entryLog_ &&", {"by": "FecTableInterfaceTest"}),
    ("log is made anew for the same arguments",
     "  if (!unchanged) {\n", "  {\n    (void)unchanged;\n", {"by": "FecTableInterfaceTest"}),
    ("status of another table is kept",
     "if (!swTableStatus_ || swTableStatus_->tableId() != tableId) {", "if (!swTableStatus_) {",
     {"by": "FecTableInterfaceTest"}),
    ("status is made anew for the same table",
     "if (!swTableStatus_ || swTableStatus_->tableId() != tableId) {", "{",
     {"by": "FecTableInterfaceTest"}),
    ("unit too many is made",
     "  if (swTable_.size() >= FecTableConstants::kMaxUnits) {\n",
     "  if (swTable_.size() > FecTableConstants::kMaxUnits) {\n", {"by": "FecTableEndTest"}),
    ("last unit is refused",
     "  if (swTable_.size() >= FecTableConstants::kMaxUnits) {\n",
     "  if (swTable_.size() + 1 >= FecTableConstants::kMaxUnits) {\n",
     {"by": "FecTableEndTest"}),
    ("unit too many is mounted before it is refused",
     """  if (swTable_.size() >= FecTableConstants::kMaxUnits) {
""",
     """  entryLog_->mountGlintConfig(unitId);
  if (swTable_.size() >= FecTableConstants::kMaxUnits) {
""", {"by": "FecTableEndTest"}),
    ("end of a unit that is not there is traced",
     "  if (!ending) {\n    return;\n  }\n  ZEV_TRACE(trace, 2, kClass, \"unitId: {}\", unitId);\n",
     "  ZEV_TRACE(trace, 2, kClass, \"unitId: {}\", unitId);\n  if (!ending) {\n    return;\n  }\n",
     {"by": "FecTableEndTest"}),
    ("unit that has ended hears reports",
     "  groupIntf()->swTableSet(FecTableConstants::kTableId)->swTableDel(unitId);\n", "",
     {"by": "FecTableEndTest"}),
    ("unit that has ended is still found",
     "  swTableDel(unitId);\n  end(*ending);\n", "  end(*ending);\n", {"by": "FecTableEndTest"}),
    ("unit that has ended leaves its requests in the queue",
     "    ending->waitingRequestsDel();\n", "", {"by": "FecTableEndTest"}),
    ("unit's requests go while it is still found",
     "  swTableDel(unitId);\n  end(*ending);\n",
     "  end(*ending);\n  swTableDel(unitId);\n", {"by": "FecTableEndTest"}),
    ("unit that has ended goes on using its interfaces",
     "      linkage->end();\n", "", {"by": "FecTableEndTest"}),
    ("former table that is held goes on when the unit is made again",
     "    end(*former);\n", "", {"by": "FecTableEndTest"}),
    ("reports while there was no unit are not caught up with",
     "  catchUpWithReports(*group);\n", "", {"by": "FecTableEndTest"}),
    ("catching up leaves the pending flag",
     "    swTableStatus_->pendingHwWritesIs(false);\n", "", {"by": "FecTableEndTest"}),
    ("log that was removed gives versions again",
     "  entryLog_->versionsGoOnAbove(group->groupLog()->announced(tableId));\n", "",
     {"by": "FecTableInterfaceTest"}),
    ("log's last version may not be reported at the start",
     "  group->groupLog()->announcedIs({tableId, entryLog_->tableVersion()});\n", "",
     {"by": "FecTableEndTest"}),
    ("linkage does not tell how many use an interface",
     "    return record ? record->entryUsage().size() : 0U;\n", "    return 0U;\n",
     {"by": "FecTableResourceChangeTest"}),
]
