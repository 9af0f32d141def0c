# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/ObjectMemory.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("block is given out twice", "      shelf.top = block->next;\n", ""),
    ("kept blocks are not counted", "      ++shelf.count;\n", ""),
    ("given blocks stay counted", "      --shelf.count;\n", ""),
    ("shelf keeps one more", "    if (shelf.count < kMostKept) {\n", "    if (shelf.count <= kMostKept) {\n"),
    ("block of the next size comes from a shelf",
     "Shelf& shelfOf(std::size_t bytes) { return shelves[(bytes - 1) / kGrain]; }",
     "Shelf& shelfOf(std::size_t bytes) { return shelves[bytes / kGrain % shelves.size()]; }"),
    ("largest block is not kept",
     "bytes - 1 < ObjectMemory::kLargestKept", "bytes < ObjectMemory::kLargestKept"),
    ("blocks are kept in thread-safe-pointer mode",
     " && !threadSafePtrMode();", ";"),
]
