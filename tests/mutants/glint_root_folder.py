# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/folder/RootFolder.cpp"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

MUTANTS = [
    ("second writer is not kept out",
     "if (::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) {",
     "if (false && ::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) {"),
]
