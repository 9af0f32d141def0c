#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Installs the build, moves what was installed to another place, and uses it there.

The environment says what is tested: CMAKE, CXX, SOURCE_FOLDER, BUILD_FOLDER, VERSION, SANITIZE (the
value of -fsanitize=, or nothing), and PLAIN, which is TRUE unless the compiler puts names of files into
the programs by itself.
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

CMAKE = os.environ["CMAKE"]
CXX = os.environ["CXX"]
SOURCE = os.environ["SOURCE_FOLDER"]
BUILD = os.environ["BUILD_FOLDER"]
VERSION = os.environ["VERSION"]
SANITIZE = os.environ["SANITIZE"]
IS_PLAIN = os.environ["PLAIN"] == "TRUE"

SOVERSION = ".".join(VERSION.split(".")[:2])
LIBRARIES = ["libLoamFec"] + ["libloamfec-" + name for name in (
    "asic", "glint", "hardware", "loamadjlib", "pell", "records", "vanta", "wirex", "zev")]
HEADER_FOLDERS = ["Asic", "Glint", "LoamAdjLib", "Pell", "Vanta", "Wirex", "Zev", "fec", "hardware",
                  "records"]
LINES_OF_THE_EXAMPLE = 150
DEMO_FOLDER = "/dev/shm/loamfec-demo"


def run(*command, **options):
    """What the command prints; it must succeed."""
    result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: exit code {result.returncode}\n"
                             f"{result.stdout}{result.stderr}")
    return result.stdout


def files_below(folder):
    """Each regular file, links left out."""
    for where, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(where, name)
            if not os.path.islink(path):
                yield path


def is_elf(path):
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


def dynamic(path, tag):
    """The values of one tag of the dynamic section."""
    return re.findall(rf"\({tag}\).*\[(.*)\]", run("readelf", "--dynamic", "--wide", path))


def indented_block(path, heading):
    """The first indented block below the heading of a Markdown file."""
    with open(path, encoding="utf-8") as file:
        below = file.read().split(f"\n{heading}\n", 1)[1]
    lines = below.splitlines()
    start = next(at for at, line in enumerate(lines) if line.startswith("    "))
    end = next((at for at in range(start, len(lines)) if not lines[at].startswith("    ")), len(lines))
    return [line[4:] for line in lines[start:end]]


class Installed(unittest.TestCase):
    """The whole installation, once per class, at a place to which it was moved."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="loamfec-install.")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.first_prefix = os.path.join(cls.folder, "as-installed")
        cls.prefix = os.path.join(cls.folder, "moved here")
        run(CMAKE, "--install", BUILD, "--prefix", cls.first_prefix)
        os.rename(cls.first_prefix, cls.prefix)
        cls.libraries = os.path.join(cls.prefix, "lib")

    def path(self, *parts):
        return os.path.join(self.prefix, *parts)


class TheTreeStandsAlone(Installed):
    def test_the_programs_run_where_they_were_moved(self):
        self.assertEqual(run(self.path("bin", "fecd"), "--version"), VERSION + "\n")
        self.assertIn("check", run(self.path("bin", "fecctl"), "--help"))

    def test_the_programs_need_no_more_than_the_components_programs_and_libraries(self):
        prefix = os.path.join(self.folder, "two-components")
        for component in ("Programs", "Libraries"):
            run(CMAKE, "--install", BUILD, "--prefix", prefix, "--component", component)
        self.assertEqual(sorted(os.listdir(prefix)), ["bin", "lib", "share"])
        for program in ("fecd", "fecctl"):
            self.assertEqual(run(os.path.join(prefix, "bin", program), "--version"), VERSION + "\n")

    def test_no_path_of_the_sources_the_build_or_the_first_place_is_left(self):
        paths = [path.encode() for path in (SOURCE, BUILD, self.first_prefix)]
        looked_at = 0
        for path in files_below(self.prefix):
            if is_elf(path):
                if not IS_PLAIN:
                    continue
                stripped = os.path.join(self.folder, "stripped")
                run("strip", "--strip-debug", "-o", stripped, path)
                path_read = stripped
            else:
                path_read = path
            with open(path_read, "rb") as file:
                content = file.read()
            found = [left for left in paths if left in content]
            self.assertEqual(found, [], f"in {path}")
            looked_at += 1
        self.assertGreater(looked_at, len(HEADER_FOLDERS))

    def test_a_release_build_has_no_debug_information_to_leave_out(self):
        with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as file:
            if "CMAKE_BUILD_TYPE:STRING=Release\n" not in file.read():
                self.skipTest("this is no release build")
        for path in filter(is_elf, files_below(self.prefix)):
            self.assertNotIn(".debug_info", run("readelf", "--sections", "--wide", path), path)

    def test_the_libraries_have_names_and_versions_of_their_own(self):
        found = {}
        for path in filter(is_elf, files_below(self.libraries)):
            name = os.path.basename(path).split(".so")[0]
            found[name] = (os.path.basename(path), dynamic(path, "SONAME"))
        expected = {name: (f"{name}.so.{VERSION}", [f"{name}.so.{SOVERSION}"]) for name in LIBRARIES}
        self.assertEqual(found, expected)

    def test_libraries_are_searched_for_beside_what_needs_them(self):
        for path in filter(is_elf, files_below(self.prefix)):
            wanted = "$ORIGIN" if path.startswith(self.libraries) else "$ORIGIN/../lib"
            self.assertEqual(dynamic(path, "R(?:UN)?PATH"), [wanted], path)

    def test_fecctl_has_no_agent_no_event_loop_and_no_hardware(self):
        kinds = {"agent": r" Agent::", "event loop": r" asio::", "replay": r" Replay::",
                 "hardware": r"libloamfec-hardware", "FEC table": r"libLoamFec"}
        found = {}
        for program in ("fecd", "fecctl"):
            path = self.path("bin", program)
            all_of_it = run("nm", "--demangle", path) + "\n".join(dynamic(path, "NEEDED"))
            found[program] = [kind for kind, it in kinds.items() if re.search(it, all_of_it)]
        self.assertEqual(found, {"fecd": list(kinds), "fecctl": []})

    def test_the_printers_for_gdb_are_there(self):
        with open(self.path("share", "loamfec", "loamfec-gdb.py"), "rb") as installed:
            with open(os.path.join(SOURCE, "share/gdb/loamfec-gdb.py"), "rb") as ours:
                self.assertEqual(installed.read(), ours.read())

    def test_the_headers_are_those_of_the_libraries_and_include_no_others(self):
        root = self.path("include", "loamfec")
        self.assertEqual(sorted(os.listdir(root)), HEADER_FOLDERS)
        for path in files_below(root):
            with open(path, encoding="utf-8") as file:
                for header in re.findall(r'^ *# *include +"(.*)"', file.read(), re.MULTILINE):
                    self.assertTrue(os.path.isfile(os.path.join(root, header)), f"{path}: {header}")


class TheExampleIsBuiltOnIt(Installed):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.example = os.path.join(cls.folder, "embed")
        shutil.copytree(os.path.join(SOURCE, "examples", "embed"), cls.example)
        cls.flags = ["-Wall", "-Wextra", "-Werror"]
        if SANITIZE:
            cls.flags += [f"-fsanitize={SANITIZE}", "-fno-sanitize-recover=all"]
        cls.expected = "\n".join(indented_block(os.path.join(cls.example, "README.md"),
                                                "It prints:")) + "\n"

    def expect_it_runs(self, program):
        """It prints what its README says, and leaves nothing behind."""
        temporary = tempfile.mkdtemp(dir=self.folder)
        printed = run(program, env=os.environ | {"TMPDIR": temporary})
        self.assertEqual(printed, self.expected)
        self.assertEqual(os.listdir(temporary), [])

    def test_by_find_package(self):
        build = os.path.join(self.folder, "by-cmake")
        run(CMAKE, "-G", "Ninja", "-S", self.example, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_COMPILER={CXX}", f"-DCMAKE_CXX_FLAGS={' '.join(self.flags)}",
            "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON")
        with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
            self.assertNotIn(SOURCE, file.read())
        run(CMAKE, "--build", build)
        self.expect_it_runs(os.path.join(build, "embed"))

    def test_by_pkg_config(self):
        environment = os.environ | {"PKG_CONFIG_PATH": os.path.join(self.libraries, "pkgconfig")}
        program = os.path.join(self.folder, "embed-by-pkg-config")
        options = run("pkg-config", "--cflags", "--libs", "loamfec", env=environment)
        self.assertNotIn(SOURCE, options)
        # A shell takes the options apart as it does in a makefile.
        run("sh", "-c", f'"$@" {options}', "sh", CXX, *self.flags, "-o", program,
            os.path.join(self.example, "main.cpp"), f"-Wl,-rpath,{self.libraries}")
        self.expect_it_runs(program)

    def test_it_is_short(self):
        with open(os.path.join(self.example, "main.cpp"), encoding="utf-8") as file:
            lines = len(file.readlines())
        self.assertLessEqual(lines, LINES_OF_THE_EXAMPLE)


class CommandsOfTheReadmeRun(unittest.TestCase):
    """README.md names the folder that scripts/demo leaves; here a smaller replay has made it."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="loamfec-readme.")
        self.addCleanup(shutil.rmtree, self.folder)
        self.demo_folder = os.path.join(self.folder, "demo")

    def demo_folder_is(self):
        """What scripts/demo does before it replays."""
        return subprocess.run(["bash", "-c", 'source "$0"; demo_folder_is "$1"',
                               os.path.join(SOURCE, "scripts", "lib.sh"), self.demo_folder],
                              capture_output=True, text=True, check=False)

    def commands(self, heading):
        """The commands of the first block below the heading, without remarks."""
        block = indented_block(os.path.join(SOURCE, "README.md"), heading)
        return [line.split("  #")[0].strip() for line in block]

    def here(self, command):
        """The same command on this build, and on folders of this test."""
        self.assertRegex(command, "build/release .*/usr/local|--state " + DEMO_FOLDER + "$")
        ours = {"build/release": BUILD, DEMO_FOLDER: self.demo_folder,
                "/usr/local": os.path.join(self.folder, "local")}
        return [ours.get(word, word) for word in command.split()]

    def test_in_order(self):
        self.assertEqual(self.demo_folder_is().returncode, 0)
        install = self.commands("## The programs")
        self.assertEqual(len(install), 1)
        run(*self.here(install[0]))
        found_by_name = os.environ | {
            "PATH": os.path.join(self.folder, "local", "bin") + ":" + os.environ["PATH"]}
        captures = os.path.join(SOURCE, "examples", "frr-nexthops")
        run("fecd", "replay", "--state", self.demo_folder,
            "--links", os.path.join(captures, "links-a-before.json"),
            "--nexthops", os.path.join(captures, "nexthops-a-before.json"), env=found_by_name)
        printed = {command: run(*self.here(command), env=found_by_name)
                   for command in self.commands("## Looking at a state folder")}
        kinds = [" ".join(command.split()[:2]) for command in printed]
        self.assertEqual(kinds, ["fecctl show", "fecctl check", "fecctl repair"])
        for command, text in printed.items():
            self.assertNotEqual(text, "", command)

    def test_the_demo_makes_its_folder_and_replaces_it(self):
        for _ in range(2):
            self.assertEqual(self.demo_folder_is().returncode, 0)
            left = os.path.join(self.demo_folder, "of-an-earlier-demo")
            self.assertFalse(os.path.exists(left))
            with open(left, "w", encoding="utf-8"):
                pass

    def test_the_demo_touches_no_folder_that_it_did_not_make(self):
        os.mkdir(self.demo_folder)
        precious = os.path.join(self.demo_folder, "precious")
        with open(precious, "w", encoding="utf-8"):
            pass
        result = self.demo_folder_is()
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("was not made by scripts/demo", result.stderr)
        self.assertEqual(os.listdir(self.demo_folder), ["precious"])

    def test_the_demo_follows_no_link(self):
        self.assertEqual(self.demo_folder_is().returncode, 0)
        moved = os.path.join(self.folder, "moved")
        os.rename(self.demo_folder, moved)
        before = os.listdir(moved)
        self.assertNotEqual(before, [])
        os.symlink(moved, self.demo_folder)
        self.assertNotEqual(self.demo_folder_is().returncode, 0)
        self.assertEqual(os.listdir(moved), before)


if __name__ == "__main__":
    unittest.main()
