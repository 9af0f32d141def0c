# SPDX-License-Identifier: Apache-2.0

FILE = "src/fec/FecTableInfraTypes.cpp"
TESTS = ["FecTableCommitStepsTest", "FecTableInfraTypesTest"]

MUTANTS = [
    ("wrapper's destination is always the unset one",
     "intfIdResPtr_ ? intfIdResPtr_->destId() : LoamAdjLib::DestId();",
     "LoamAdjLib::DestId();"),
    ("wrapper's destination loses its third field",
     "return {destination.first, destination.second, destination.third};",
     "return {destination.first, destination.second, 0};"),
    ("wrapper's destination swaps its fields",
     "return {destination.first, destination.second, destination.third};",
     "return {destination.third, destination.second, destination.first};"),
    ("resolved destination loses its first field",
     "  entry_.resolvedDest.first = destination.first;\n", ""),
    ("resolved destination loses its second field",
     "  entry_.resolvedDest.second = static_cast<std::uint16_t>(destination.second);\n", ""),
    ("resolved destination loses its third field",
     "  entry_.resolvedDest.third = destination.third;\n", ""),
    ("resolved destination overwrites what the client wrote",
     "  entry_.resolvedDest.first = destination.first;\n",
     "  entry_.resolvedDest.first = destination.first;\n"
     "  entry_.clientDest.first = destination.first;\n"),
    ("resolved destination is cut to 16 bits",
     "entry_.resolvedDest.first = destination.first;",
     "entry_.resolvedDest.first = destination.first & 0xFFFF;"),
    ("finalising a delete resolves the destination",
     "  if (!isDeleted) {\n    setResolvedFields();\n  }\n", "  setResolvedFields();\n"),
    ("finalising a write leaves the destination",
     "  if (!isDeleted) {\n    setResolvedFields();\n  }\n", ""),
    ("helper is told before the destination is resolved",
     """  if (!isDeleted) {
    setResolvedFields();
  }
  const Pell::Ptr<FecTableSwTableHelperBase> helper = swTable->swTableHelper();
  helper->finalizeOnSuccess(Ptr(this), isDeleted);
""",
     """  const Pell::Ptr<FecTableSwTableHelperBase> helper = swTable->swTableHelper();
  helper->finalizeOnSuccess(Ptr(this), isDeleted);
  if (!isDeleted) {
    setResolvedFields();
  }
"""),
    ("helper is not told of a success",
     "  helper->finalizeOnSuccess(Ptr(this), isDeleted);\n", ""),
    ("helper is told of a delete when a write succeeds",
     "helper->finalizeOnSuccess(Ptr(this), isDeleted);",
     "helper->finalizeOnSuccess(Ptr(this), true);"),
    ("helper is told of a delete when a write fails",
     "helper->finalizeOnFailure(Ptr(this), isDeleted, swTable);",
     "helper->finalizeOnFailure(Ptr(this), true, swTable);"),
    ("helper gets no table when a write fails",
     "helper->finalizeOnFailure(Ptr(this), isDeleted, swTable);",
     "helper->finalizeOnFailure(Ptr(this), isDeleted, nullptr);"),
    ("helper's acceptance of a failure is not passed on",
     "  return retVal;\n", "  return false;\n"),
    ("helper's refusal is not passed on",
     "  return retVal;\n", "  return true;\n"),
    ("failure resolves the destination",
     "  const bool retVal = helper->",
     "  setResolvedFields();\n  const bool retVal = helper->"),
    ("success is told to the helper as a failure",
     "  helper->finalizeOnSuccess(Ptr(this), isDeleted);\n",
     "  (void)helper->finalizeOnFailure(Ptr(this), isDeleted, swTable);\n"),
    ("answer of the failure hook is not traced",
     '  ZEV_TRACE(wrapperTrace, 3, kWrapperClass, " retVal: {}", retVal);\n', ""),
    ("answer of the failure hook is traced at another level",
     'ZEV_TRACE(wrapperTrace, 3, kWrapperClass, " retVal: {}", retVal);',
     'ZEV_TRACE(wrapperTrace, 8, kWrapperClass, " retVal: {}", retVal);'),
    ("default helper accepts failures", "  return false;\n", "  return true;\n"),
    ("default helper refuses resource updates", "  return true;\n", "  return false;\n"),
    ("resolver entry says that it is resolved",
     "  return swTable_->isResolverEntryResolved(Pell::Ptr<FecTableResolverEntry>(this));\n",
     "  return true;\n", {"by": "FecTableStepsTest"}),
    ("resolver entry forgets its dependency",
     ": Typed(dependantEntryHandle, flags), swTable_(swTable)",
     ": Typed(nullptr, flags), swTable_(swTable)", {"by": "FecTableStepsTest"}),
    ("resolver entry forgets its flags",
     ": Typed(dependantEntryHandle, flags), swTable_(swTable)",
     ": Typed(dependantEntryHandle, Asic::EntryFlags()), swTable_(swTable)",
     {"by": "FecTableStepsTest"}),
]
