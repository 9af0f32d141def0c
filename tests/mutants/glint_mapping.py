# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/folder/Mapping.cpp"
TESTS = ["GlintTest"]

MUTANTS = [
    ("mapping outlives its owner", "    ::munmap(base_, bytes_);\n", ""),
    ("mapping of a reader is writable",
     "access == Access::write ? PROT_READ | PROT_WRITE : PROT_READ",
     "access == Access::write ? PROT_READ | PROT_WRITE : PROT_READ | PROT_WRITE"),
    ("failed mapping counts as one", "if (base != MAP_FAILED) {", "{"),
]
