# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/include/Asic/Versions.h"
TESTS = ["AsicTest"]

MUTANTS = [
    ("remove-all version 0 is not valid",
     "bool valid() const { return value_ != kInvalid; }", "bool valid() const { return value_ + 1 > 1; }"),
    ("remove-all versions begin valid",
     "  std::uint64_t value_ = kInvalid;\n", "  std::uint64_t value_ = 0;\n"),
    ("every entry version is valid",
     "bool valid() const { return major_ != ~std::uint64_t{0}; }", "bool valid() const { return true; }"),
    ("entry versions are compared without their last 16 bits",
     "return a.major_ == b.major_ && a.minor_ == b.minor_;", "return a.major_ == b.major_;"),
    ("entry versions are compared by their last 16 bits",
     "return a.major_ == b.major_ && a.minor_ == b.minor_;", "return a.minor_ == b.minor_;"),
    ("entry versions are compared in 32 bits",
     "return a.major_ == b.major_ && a.minor_ == b.minor_;",
     "return static_cast<std::uint32_t>(a.major_ - b.major_) == 0 && a.minor_ == b.minor_;"),
    ("agent is taken from the group's bits",
     "static_cast<std::uint8_t>(value_ >> 24)", "static_cast<std::uint8_t>(value_ >> 16)"),
    ("agent and group are cut to the group",
     "    return static_cast<std::uint16_t>(value_ >> 16);\n",
     "    return static_cast<std::uint8_t>(value_ >> 16);\n"),
    ("remove is flagged as a table delete",
     "entryDelete() { return EntryFlags(1); }", "entryDelete() { return EntryFlags(2); }"),
    ("state of a success has another number", "  done = 3, ", "  done = 6, "),
    ("state of a refused commit has another number", "  commitFailed = 4, ", "  commitFailed = 7, "),
]
