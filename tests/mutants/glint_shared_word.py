# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/format/SharedWord.h"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

# x86 keeps stores in order and loads in order, so these live there.
ORDER_ONLY = "not to be seen on x86, which keeps the order by itself"

MUTANTS = [
    ("checksum leaves the seq out",
     "return XXH3_64bits(sealed.data(), sealed.size_bytes());",
     "return XXH3_64bits(sealed.data(), sealed.size_bytes() - 8);"),
    ("checksum leaves the last word out",
     "return XXH3_64bits(sealed.data(), sealed.size_bytes());",
     """std::uint64_t some[1024] = {};
  std::copy(sealed.begin(), sealed.end(), some);
  some[sealed.size() - 2] = 0;
  return XXH3_64bits(some, sealed.size_bytes());"""),
    ("copy is believed without its checksum",
     "return checksumOf(sealed) == checksum ? CopyState::good : CopyState::damaged;",
     "(void)checksum; return CopyState::good;"),
    ("copy is believed under any seq", "  sealed[words] = seq;\n", "  sealed[words] = seq & 0;\n"),
    ("damaged copy counts as changed",
     "return checksumOf(sealed) == checksum ? CopyState::good : CopyState::damaged;",
     "return checksumOf(sealed) == checksum ? CopyState::good : CopyState::changed;"),
    ("copy is believed without a second look at seq",
     "    return loadRelaxed(seqWord) == seq;\n", "    (void)seqWord;\n    return true;\n"),
    ("change of seq does not count",
     """  if (!isUnchanged()) {
    return CopyState::changed;
  }
""",
     """  (void)isUnchanged();
"""),
    ("no fence before a copy is filled",
     """  fenceBeforeFill();
""",
     "",
     {"lives": ORDER_ONLY}),
    ("no fence before the second look at seq",
     """    fenceBeforeSecondLook();
    return loadRelaxed(seqWord) == seq;
""",
     """    return loadRelaxed(seqWord) == seq;
""",
     {"lives": ORDER_ONLY}),
]
