# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/include/Glint/Guarded.h"
TESTS = ["GlintTest"]

MUTANTS = [
    ("map is not told of its damage",
     "    map.doCorruptionDetected(corruption.message());\n", "    (void)corruption;\n"),
    ("lookup that met damage met none",
     "    map.doCorruptionDetected(corruption.message());\n    return false;\n",
     "    map.doCorruptionDetected(corruption.message());\n    return true;\n"),
    ("walk over damage says that it saw all",
     "      sawAll = false;\n", ""),
    ("walk over damage ends at it",
     "      if (!at.canGoOn()) {\n", "      {\n"),
    ("walk that cannot go on goes on",
     "      if (!at.canGoOn()) {\n", "      if (false) {\n"),
    ("walk over damage catches what its visitor throws",
     "      visit(at.row());\n    } else {\n", "      guarded(map, [&] { visit(at.row()); });\n    } else {\n"),
    ("walk to damage catches what its visitor throws",
     "    visit(at.row());\n  }\n  return false;\n",
     "    guarded(map, [&] { visit(at.row()); });\n  }\n  return false;\n"),
    ("walk to damage says that there was none",
     "    visit(at.row());\n  }\n  return false;\n", "    visit(at.row());\n  }\n  return true;\n"),
    ("walk to damage never says that there was none",
     "    if (!at.valid()) {\n      return true;\n    }\n", "    if (!at.valid()) {\n      return false;\n    }\n"),
]
