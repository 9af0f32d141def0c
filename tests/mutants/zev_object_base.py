# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/include/Zev/PtrInterface.h"
TESTS = ["ZevTest"]

MUTANTS = [
    ("class tells its name alone, whatever it has to tell",
     "    static const TypeRecord record = Derived::typeRecord();\n",
     "    static const TypeRecord record = Typed::typeRecord();\n"),
    ("class goes by its base's name",
     "  static TypeRecord typeRecord() { return {.name = Derived::kTypeName}; }\n",
     "  static TypeRecord typeRecord() { return {.name = Base::kTypeName}; }\n"),
]
