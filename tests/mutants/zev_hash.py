# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/include/Zev/Hash.h"
TESTS = ["ZevTest"]

MUTANTS = [
    ("hash ignores its seed", "seedTwice ^ kSeedMask);", "kSeedMask + 0 * seedTwice);"),
    ("hash ignores its salt", "hashSeed32() ^ kSalt, Bits()(key)", "hashSeed32(), Bits()(key)"),
    ("hash ignores its value's high half",
     "Detail::foldedProduct(value ^ kValueMask, ", "Detail::foldedProduct((value & 0xFFFFFFFF) ^ kValueMask, "),
    ("hash takes one product",
     "const std::uint64_t twice = Detail::foldedProduct(once ^ kValueMask, kSeedMask);",
     "const std::uint64_t twice = once;"),
]
