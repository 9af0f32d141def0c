# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/Constants.cpp"
TESTS = ["AsicTest", "FecTableInterfaceStepsTest"]

MUTANTS = [
    ("group's name lacks its agent", 'return fmt::format("{}.{}", agent, group);',
     'return fmt::format("{}.{}", group, group);'),
    ("log's path lacks its table", 'return fmt::format("{}.{}.{}.log", group, subgroup, table);',
     'return fmt::format("{}.{}.log", group, subgroup);'),
    ("group log's path is that of the versions",
     'return fmt::format("{}.{}.grouplog", agent, group);',
     'return fmt::format("{}.{}.applied", agent, group);'),
    ("path of the applied versions is that of the group log",
     'return fmt::format("{}.{}.applied", agent, group);',
     'return fmt::format("{}.{}.grouplog", agent, group);'),
]
