# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/Entity.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("singleton is made anew",
     "  if (Pell::Ptr<Entity> held = singleton(name)) {\n    return held;\n  }\n", ""),
    ("singleton is not kept", "  singletons()[name] = made;\n", ""),
    ("every singleton exists", "return singletons().contains(name);", "(void)name; return true;"),
    ("singletons stay", "std::exchange(singletons(), Singletons());", "singletons();"),
]
