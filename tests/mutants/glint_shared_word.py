# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/format/SharedWord.h"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

# x86 keeps stores in order and loads in order, so these live there.
ORDER_ONLY = "not to be seen on x86, which keeps the order by itself"

MUTANTS = [
    ("checksum leaves the seq out",
     "return XXH3_64bits(words.data(), sizeof words);",
     "return XXH3_64bits(words.data(), sizeof words - 8);"),
    ("checksum leaves the last word out",
     "return XXH3_64bits(words.data(), sizeof words);",
     "auto some = words; some[kWords - 1] = 0; return XXH3_64bits(some.data(), sizeof some);"),
    ("copy is believed without its checksum",
     "return out.checksum() == checksum ? CopyState::good : CopyState::damaged;",
     "(void)checksum; return CopyState::good;"),
    ("copy is believed without a second look at seq",
     """  if (loadRelaxed(seqWord) != seq) {
    return CopyState::changed;
  }
""",
     """  (void)seqWord;
"""),
    ("no fence before a copy is filled",
     """  fenceBeforeFill();
""",
     "",
     {"lives": ORDER_ONLY}),
    ("no fence before the second look at seq",
     """  out.words[kWords] = seq;
  fenceBeforeSecondLook();
""",
     """  out.words[kWords] = seq;
""",
     {"lives": ORDER_ONLY}),
]
