# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Pell/include/Pell/HashMap.h"
TESTS = ["PellTest", "PellMemoryTest"]

MUTANTS = [
    ("inserting says that a key is new when it is not",
     "      std::swap(slots_[indexed->second]->value, value);\n      return false;\n",
     "      std::swap(slots_[indexed->second]->value, value);\n      return true;\n"),
    ("inserting keeps the old value",
     "      std::swap(slots_[indexed->second]->value, value);\n", ""),
    ("removal leaves the index", "    index_.erase(found);\n", ""),
    ("removal leaves the slot", "    slots_[slot].reset();\n", ""),
    ("removed slot is not used again", "    free_.push_back(slot);\n    return taken;\n", "    return taken;\n"),
    ("clearing leaves the index",
     "    free_.clear();\n    index_.clear();\n", "    free_.clear();\n"),
    ("clearing leaves free slots", "    free_.clear();\n    index_.clear();\n", "    index_.clear();\n"),
    ("walk begins at the second slot", "Cursor begin() const { return firstFrom(0); }", "Cursor begin() const { return firstFrom(1); }"),
    ("walk stays where it is", "Cursor next(Cursor at) const { return firstFrom(at + 1); }", "Cursor next(Cursor at) const { return firstFrom(at + 2); }"),
    ("walk meets free slots", "while (within(at) && !slots_[at].has_value()) {", "while (false) {"),
    ("cursor beyond a clear stays there", "    return std::min(at, end());\n", "    return at;\n"),
    ("key is indexed before there is room for it",
     "    makeRoom();\n    const auto [indexed, isNew] = index_.try_emplace(key);\n    if (!isNew) {\n",
     "    const auto [indexed, isNew] = index_.try_emplace(key);\n    makeRoom();\n    if (!isNew) {\n",
     {"by": "PellMemoryTest"}),
    ("walk visits each element twice",
     "      visit(slots_[at]->key, slots_[at]->value);\n",
     "      visit(slots_[at]->key, slots_[at]->value);\n      if (elementAt(at)) visit(slots_[at]->key, slots_[at]->value);\n"),
]
