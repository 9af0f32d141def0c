# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/format/TableView.h"
TESTS = ["GlintTest", "StateToolsTest", "CrashTest", "FormatTest", "AgentCrashTest"]

MUTANTS = [
    ("row checks out without its last word",
     "std::span(room).first(rowWords(fixed_.rowBytes) + 1)",
     "std::span(room).first(rowWords(fixed_.rowBytes))"),
    ("row checks out in the other copy",
     "return checksOut(copyAt(slot, seq.copy()), seq.word(),",
     "return checksOut(copyAt(slot, seq.copy() ^ 1U), seq.word(),"),
    ("key is read from the other copy",
     "copyAt(slot, seq.copy())[1]", "copyAt(slot, seq.copy() ^ 1U)[1]"),
    ("one slot more than there are can be in use",
     "slots.value() <= fixed_.slotCount", "slots.value() <= fixed_.slotCount + 1"),
    ("one slot fewer than there are can be in use",
     "slots.value() <= fixed_.slotCount", "slots.value() < fixed_.slotCount"),
    ("check of the slots in use is not looked at",
     "return slots.valid() && slots.value()", "return slots.value()"),
]
