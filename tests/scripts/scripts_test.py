#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs scripts/check and scripts/test in a small tree, with tools that do as they are told.

    scripts_test.py SOURCE_FOLDER
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = sys.argv.pop(1)

LICENCE = "// SPDX-License-Identifier: Apache-2.0\n"
# What stands for a tool: it prints and ends as its test wants it.
TOOLS = {
    "git": 'cat "$(dirname "$0")/tracked"',
    "dpkg-query": 'printf "installed %s\\n" "$@"',
    "apt-get": 'echo "E: no such package"; exit 100',
    "clang-format": "exit 0",
    "shellcheck": "exit 0",
    "cmake": "mkdir -p build/dev build/coverage",
    "clang-tidy": "exit 0",
    "ctest": "exit 0",
    "gcovr": "exit 0",
}


class Scripts(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="loamfec-scripts.")
        self.addCleanup(shutil.rmtree, self.folder)
        self.tree = os.path.join(self.folder, "the tree")
        self.tools = os.path.join(self.folder, "tools")
        os.mkdir(self.tools)
        shutil.copytree(os.path.join(SOURCE, "scripts"), os.path.join(self.tree, "scripts"))
        for name, does in TOOLS.items():
            self.tool_is(name, does)
        self.tracked = []
        self.file_is("src/a/One.h", LICENCE + '#include "b/Two.h"\n')
        self.file_is("src/a/One.cpp", LICENCE + '#include "One.h"\n')

    def tool_is(self, name, does):
        path = os.path.join(self.tools, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + does + "\n")
        os.chmod(path, 0o755)

    def file_is(self, name, text):
        path = os.path.join(self.tree, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.tracked.append(name)

    def run_script(self, *command, cwd=None, **environment):
        with open(os.path.join(self.tools, "tracked"), "w", encoding="utf-8") as file:
            file.write("".join(name + "\n" for name in self.tracked))
        path = self.tools + ":" + os.environ["PATH"]
        return subprocess.run(command, cwd=cwd or self.tree, capture_output=True, text=True,
                              check=False, env=os.environ | {"PATH": path} | environment)

    def expect_passes(self, *command, **options):
        result = self.run_script(*command, **options)
        self.assertEqual(result.returncode, 0, f"{result.stdout}{result.stderr}")

    def expect_fails(self, said, *command, **options):
        result = self.run_script(*command, **options)
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertIn(said, result.stdout + result.stderr)
        return result

    def test_a_tree_in_order_passes(self):
        self.expect_passes("scripts/check", "format", "tidy", "clang")
        self.expect_passes("scripts/test", "--quick")
        self.expect_passes("scripts/test")

    def test_a_file_that_is_tracked_and_gone_is_no_matter(self):
        for tool in ("clang-format", "clang-tidy"):
            self.tool_is(tool, 'for file; do :; done; test -e "${file}"')
        self.file_is("src/a/Gone.cpp", LICENCE)
        os.remove(os.path.join(self.tree, "src/a/Gone.cpp"))
        self.expect_passes("scripts/check", "format", "tidy")

    def test_an_include_that_leads_out_of_its_folder_is_found(self):
        self.file_is("src/a/Wrong.h", LICENCE + '#include "../b/Two.h"\n')
        self.expect_fails("src/a/Wrong.h:2", "scripts/check", "format")

    def test_it_is_found_among_more_files_than_a_command_line_holds(self):
        self.file_is("src/a/Wrong.h", LICENCE + '#include "../b/Two.h"\n')
        for number in range(1500):
            self.file_is(f"src/a/{'long' * 25}{number}.h", LICENCE)
        self.expect_fails("src/a/Wrong.h:2", "scripts/check", "format")

    def test_a_file_without_its_licence_line_is_found(self):
        self.file_is("src/a/Wrong.h", "#pragma once\n" + LICENCE)
        self.expect_fails("src/a/Wrong.h: the licence line is missing", "scripts/check", "format")

    def test_folders_that_differ_by_case_alone_are_found(self):
        self.file_is("src/b/A/Two.h", LICENCE)
        self.expect_fails("A a", "scripts/check", "format")

    def test_a_tool_that_finds_something_fails_its_step(self):
        for tool, step in (("clang-format", "format"), ("shellcheck", "format"),
                           ("clang-tidy", "tidy"), ("cmake", "clang"), ("ctest", "clang")):
            with self.subTest(tool):
                self.tool_is(tool, f"echo {tool} has found it; exit 1")
                result = self.expect_fails(f"'scripts/check {step}' runs it alone", "scripts/check", step)
                self.assertIn(f"{tool} has found it", result.stdout + result.stderr)
                self.tool_is(tool, TOOLS[tool])

    def test_a_failed_test_and_too_few_lines_fail_the_tests(self):
        self.tool_is("gcovr", "exit 2")
        self.expect_passes("scripts/test", "--quick")
        self.expect_fails("Line coverage", "scripts/test")
        self.tool_is("ctest", "exit 8")
        self.expect_fails("Running the tests", "scripts/test", "--quick")

    def test_a_setup_that_fails_says_how_to_run_it_again(self):
        self.tool_is("dpkg-query", "exit 1")
        self.tool_is("sudo", "exit 1")
        self.expect_fails("'scripts/setup check' runs it alone", "scripts/check", "format")

    def test_steps_that_there_are_not_are_named(self):
        for step in ("none", "", "*", "format tidy"):
            result = self.expect_fails(f"what is '{step}'?", "scripts/check", step)
            self.assertNotIn("==", result.stdout)

    def test_a_link_to_a_script_runs_it(self):
        link = os.path.join(self.folder, "pre-push")
        os.symlink(os.path.join(self.tree, "scripts", "check"), link)
        self.expect_passes(link, "format", cwd=self.folder)
        self.file_is("src/a/Wrong.h", LICENCE + '#include "../b/Two.h"\n')
        self.expect_fails("src/a/Wrong.h:2", link, "format", cwd=self.folder)

    def test_a_script_without_its_library_fails(self):
        os.remove(os.path.join(self.tree, "scripts", "lib.sh"))
        for script in ("check", "test", "demo", "bench"):
            self.expect_fails("lib.sh", "scripts/" + script)

    def test_cdpath_leads_no_script_astray(self):
        os.makedirs(os.path.join(self.folder, "other", "scripts"))
        self.file_is("src/a/Wrong.h", LICENCE + '#include "../b/Two.h"\n')
        self.expect_fails("src/a/Wrong.h:2", "scripts/check", "format",
                          CDPATH=os.path.join(self.folder, "other"))


if __name__ == "__main__":
    unittest.main()
