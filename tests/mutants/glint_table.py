# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/table/Table.cpp"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

MUTANTS = [
    ("delete does not raise the generation",
     """void Table::rowDeleted(std::uint32_t slot) {
  generationIs(generation_ + 2);""",
     "void Table::rowDeleted(std::uint32_t slot) {"),
    ("mount leaves a delete in flight linked",
     """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
    generationIs(generation_ + 2);
    if""",
     "    if"),
    ("mount forgets the slot of a change in flight",
     """    if (!Seq(loadRelaxed(*view_.slot(change.slot))).retired()) {
      freeSlots_.push_back(change.slot);
    }
  }
  for (const Pell::String& finding""",
     """  }
  for (const Pell::String& finding"""),
    ("mount leaves damaged rows in use",
     """    countCorruption(1);
    retire(row.slot);
""",
     """    countCorruption(1);
"""),
    ("mount leaves an unfinished index as it is",
     """  if (found.indexUnfinished) {
    rebuildIndex();
  }
""",
     ""),
    ("mount believes the row counter",
     "  rowCount_ = found.liveSlots;",
     "  rowCount_ = Counter(loadRelaxed(view_.header().rowCount)).value();"),
    ("retirement does not unlink",
     """  std::erase(freeSlots_, slot);
  unlinkWherever(slot);
""",
     """  std::erase(freeSlots_, slot);
"""),
    ("index is rebuilt with an even generation",
     """  generationIs(generation_ | 1U);
""",
     """  generationIs(generation_ + 2);
"""),
    ("slots are published before they are made",
     """  for (std::uint32_t slot = first + count; slot-- > first;) {
    storeRelaxed(*view_.slot(slot), Seq(0, false, 0).word());""",
     """  storeRelease(view_.header().slotsInUse, Counter::of(first + count).word());
  for (std::uint32_t slot = first + count; slot-- > first;) {
    storeRelaxed(*view_.slot(slot), Seq(0, false, 0).word());"""),
    ("file gets its name before its contents",
     "  if (const int error = writeNewFile(file.get(), layout, fileName); error != 0) {",
     """  root.publish(fileName);
  if (const int error = writeNewFile(file.get(), layout, fileName); error != 0) {"""),
    ("mount unlinks without raising the generation",
     """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
    generationIs(generation_ + 2);
""",
     """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
"""),
    ("retirement does not raise the generation",
     """  storeRelease(word, after.word());
  generationIs(generation_ + 2);
""",
     """  storeRelease(word, after.word());
"""),
]
