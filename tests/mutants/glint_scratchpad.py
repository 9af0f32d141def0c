# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/format/Scratchpad.h"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

MUTANTS = [
    ("scratchpad is published before it is filled",
     """  fillCopy(&pad.copies[next.copy()].checksum, row, next.word());
  storeRelease(pad.seq, next.word());""",
     """  storeRelease(pad.seq, next.word());
  fillCopy(&pad.copies[next.copy()].checksum, row, next.word());"""),
    ("scratchpad fills the live copy",
     "fillCopy(&pad.copies[next.copy()].checksum, row, next.word());",
     "fillCopy(&pad.copies[seq.copy()].checksum, row, next.word());"),
]
