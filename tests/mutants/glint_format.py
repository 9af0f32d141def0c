# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/format/Format.h"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

MUTANTS = [
    ("published seq does not flip the copy",
     "{version() + 1, true, copy() ^ 1U}",
     "{version() + 1, true, copy()}"),
    ("published seq keeps its version",
     "{version() + 1, true, copy() ^ 1U}",
     "{version(), true, copy() ^ 1U}"),
    ("deleted seq keeps its version",
     "{version() + 1, false, copy()}",
     "{version(), false, copy()}"),
    ("check of links is not looked at",
     "constexpr bool valid() const { return withCheck(word_ & kMaxSlots) == word_; }",
     "constexpr bool valid() const { return true; }"),
    ("check of seqs is not looked at",
     "constexpr bool valid() const { return withCheck(word_ & kValueMask) == word_; }",
     "constexpr bool valid() const { return true; }"),
    ("row of version 0 is possible",
     "return valid() && (!live() || version() != 0);", "return valid();"),
    ("check of counters is not looked at",
     "constexpr bool valid() const { return of(value()).word_ == word_; }",
     "constexpr bool valid() const { return true; }"),
]
