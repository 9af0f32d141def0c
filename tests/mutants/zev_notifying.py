# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/NotifyingObject.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("object reacts though its notifications are off",
     "        if (owner.reactsToChanges()) {\n", "        if (owner.reactsToChanges() || true) {\n"),
    ("object never reacts",
     "        if (owner.reactsToChanges()) {\n", "        if (false) {\n"),
]
