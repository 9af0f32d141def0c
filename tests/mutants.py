#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Breaks one rule of the code at a time and shows which test notices.

    python3 tests/mutants.py              every mutant
    python3 tests/mutants.py NAME...      only these; a file of tests/mutants, such as glint_table, is
                                          all of its mutants
    python3 tests/mutants.py --list       what there is, by file
    python3 tests/mutants.py --check      whether every mutant fits its source, and no more

    --jobs N          builds and runs N mutants at a time; as many as there are processors without it
    --results FILE    keeps what has become of each mutant, and does not run again what stands there:
                      a run can be stopped and gone on with, or done in parts
    --folder FOLDER   works there and leaves its builds for the next run
    --from N          begins with the N-th

The mutants stand in tests/mutants/*.py, one file for each source:

    FILE      the source
    TESTS     the test programs that know it, the likeliest to notice first
    MUTANTS   tuples of a name, a piece of the source that is there exactly once, and what replaces it;
              a fourth element {"lives": "why"} says why nobody can see the mutant, {"by": "Program"}
              which test program to begin with

Works on copies of the work tree, below the temporary folder; the tree itself is not touched. Test
programs run whole, one after the other, until one fails, crashes or does not come to its end. Those
of TESTS come first; then, for a mutant that is not expected to live, all other unit tests.

Exit code: 0 when every mutant was killed, save those that nobody can see; 1 when one lived; 2 when
something else went wrong.
"""

import argparse
import contextlib
import filecmp
import glob
import hashlib
import json
import os
import queue
import re
import runpy
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FOLDERS = "unit|model|crash|format"
# All of these are asked about a mutant that its own tests let live.
UNIT_TESTS = "unit/**"
# Beside five times a program's own time without a mutant: machines have more to do.
PATIENCE_SECONDS = 20
# But these, which take longer than all others together.
ASKED_BY_NAME_ALONE = {"FecTableFullLogTest", "LargeRedriveTest"}


class Trouble(Exception):
    pass


@dataclass
class Mutant:
    name: str
    group: str
    file: str
    old: str
    new: str
    tests: list
    lives: str


def load():
    """The mutants of all files, in the order of the files' names."""
    mutants = []
    for path in sorted(glob.glob(os.path.join(ROOT, "tests/mutants/*.py"))):
        told = runpy.run_path(path)
        group = os.path.basename(path)[:-3]
        for name, old, new, *rest in told["MUTANTS"]:
            options = rest[0] if rest else {}
            first = [options["by"]] if "by" in options else []
            tests = first + [test for test in told["TESTS"] if test not in first]
            mutants.append(Mutant(name, group, told["FILE"], old, new, tests, options.get("lives")))
    return mutants


def programs_of_the_tree(folder="**"):
    """The names of the test programs below a folder of tests."""
    names = set()
    for path in glob.glob(os.path.join(ROOT, f"tests/{folder}/CMakeLists.txt"), recursive=True):
        with open(path, encoding="utf-8") as text:
            names.update(re.findall(r"loamfec_test\(\s*(\w+)", text.read()))
    return names


def check(mutants):
    """What is wrong with the mutants, one line per finding."""
    findings = []
    sources = {}
    programs = programs_of_the_tree()
    seen = set()
    for mutant in mutants:
        if mutant.file not in sources:
            with open(os.path.join(ROOT, mutant.file), encoding="utf-8") as text:
                sources[mutant.file] = text.read()
        places = sources[mutant.file].count(mutant.old)
        if places != 1:
            findings.append(f"{mutant.group}: '{mutant.name}': {places} places in {mutant.file} read"
                            f"\n{mutant.old}")
        if mutant.old == mutant.new:
            findings.append(f"{mutant.group}: '{mutant.name}' changes nothing")
        if mutant.name in seen:
            findings.append(f"{mutant.group}: there are two mutants '{mutant.name}'")
        seen.add(mutant.name)
        findings += [f"{mutant.group}: '{mutant.name}': there is no test program {test}"
                     for test in mutant.tests if test not in programs]
    return findings


def chosen_of(mutants, names):
    if not names:
        return mutants
    known = {mutant.name for mutant in mutants} | {mutant.group for mutant in mutants}
    for name in names:
        if name not in known:
            raise Trouble(f"there is no mutant '{name}'; --list names them")
    return [mutant for mutant in mutants if mutant.name in names or mutant.group in names]


def tracked_files():
    return subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                          cwd=ROOT, check=True, capture_output=True).stdout


def tree_hash():
    """Tells one state of what is built from another: results of one do not count for the other."""
    digest = hashlib.sha256()
    for name in sorted(set(tracked_files().decode().split("\0"))):
        path = os.path.join(ROOT, name)
        if name.endswith((".cpp", ".h", ".txt", ".cmake")) and os.path.exists(path):
            with open(path, "rb") as content:
                digest.update(name.encode() + b"\0" + content.read())
    return digest.hexdigest()[:16]


class Results:
    """What has become of mutants, on disk as one JSON object a line."""

    def __init__(self, path):
        self.path = path
        self.tree = tree_hash()
        self.known = {}
        if path and os.path.exists(path):
            with open(path, encoding="utf-8") as lines:
                for line in lines:
                    result = json.loads(line)
                    if result["tree"] == self.tree:
                        self.known[result["id"]] = result

    @staticmethod
    def identity(mutant):
        text = "\0".join([mutant.name, mutant.file, mutant.old, mutant.new])
        return hashlib.sha256(text.encode()).hexdigest()[:16]

    def of(self, mutant):
        return self.known.get(self.identity(mutant))

    def add(self, mutant, killer):
        result = {"tree": self.tree, "id": self.identity(mutant), "name": mutant.name,
                  "killer": killer}
        self.known[result["id"]] = result
        if self.path:
            with open(self.path, "a", encoding="utf-8") as lines:
                lines.write(json.dumps(result) + "\n")


class Copy:
    """The work tree's sources in a folder of their own, with a build of their own."""

    def __init__(self, folder, jobs):
        self.folder = folder
        self.build = os.path.join(folder, "build")
        self.jobs = jobs
        # Copies share compiled objects, whatever folder they are in.
        self.environment = dict(os.environ, CCACHE_BASEDIR=folder, CCACHE_NOHASHDIR="1")
        self.take_sources()
        # Without warnings: a mutant may leave something unused.
        subprocess.run(["cmake", "-G", "Ninja", "-S", folder, "-B", self.build,
                        "--log-level=WARNING", "-DCMAKE_CXX_COMPILER=clang++",
                        "-DCMAKE_CXX_FLAGS=-O0 -w", "-DLOAMFEC_BENCH=OFF",
                        f"-DLOAMFEC_TEST_FOLDERS={FOLDERS}"],
                       env=self.environment, stdout=subprocess.DEVNULL, check=True)

    def take_sources(self):
        """Brings the copy in line with the work tree; files that are the same keep their times."""
        names = [name for name in tracked_files().decode().split("\0")
                 if name and os.path.exists(os.path.join(ROOT, name))]
        for name in names:
            source, copied = os.path.join(ROOT, name), os.path.join(self.folder, name)
            if not (os.path.exists(copied) and filecmp.cmp(source, copied, shallow=False)):
                os.makedirs(os.path.dirname(copied), exist_ok=True)
                shutil.copy(source, copied)
        known = set(names)
        for at, _, files in os.walk(self.folder):
            for file in files:
                name = os.path.relpath(os.path.join(at, file), self.folder)
                if not name.startswith("build/") and name not in known:
                    os.remove(os.path.join(self.folder, name))

    def make(self, *targets):
        """Builds the targets; false when something does not compile."""
        built = subprocess.run(["cmake", "--build", self.build, "--parallel", str(self.jobs),
                                "--target", *targets], env=self.environment, check=False,
                               capture_output=True, text=True, errors="replace")
        self.said = built.stdout
        return built.returncode == 0

    def make_or_stop(self, mutant, target):
        if not self.make(target):
            raise Trouble(f"'{mutant.name}' does not compile; mend the mutant\n{self.said[-3000:]}")

    def replace(self, mutant):
        path = os.path.join(self.folder, mutant.file)
        with open(path, encoding="utf-8") as source:
            text = source.read()
        with open(path, "w", encoding="utf-8") as source:
            source.write(text.replace(mutant.old, mutant.new))

        def restore():
            with open(path, "w", encoding="utf-8") as source:
                source.write(text)
        return restore

    def program(self, name):
        found = glob.glob(f"{self.build}/tests/**/{name}", recursive=True)
        return found[0] if found else None

    def first_failure(self, name, seconds):
        """The test case of the program that fails, crashes or hangs first; None when all pass."""
        started = subprocess.Popen([self.program(name), "--gtest_fail_fast", "--gtest_brief=0"],
                                   cwd=self.build, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True, errors="replace",
                                   start_new_session=True)
        try:
            output, _ = started.communicate(timeout=seconds)
            ending = "" if started.returncode in (0, 1) else " (crashed)"
        except subprocess.TimeoutExpired:
            os.killpg(started.pid, signal.SIGKILL)
            output, _ = started.communicate()
            ending = " (hangs)"
        if started.returncode == 0:
            return None
        failed = re.search(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", output, re.MULTILINE)
        running = re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE)
        case = failed.group(1) if failed else running[-1] if running else "its start"
        return f"{name}: {case}{ending}"


class Run:
    """All mutants of one run, over several copies."""

    def __init__(self, chosen, results, jobs, folder):
        self.folder = folder
        self.chosen = chosen
        self.results = results
        self.jobs = min(jobs, max(1, len(chosen)))
        self.seconds = {}  # of each test program, without a mutant
        self.lock = threading.Lock()
        self.waiting = queue.Queue()
        self.trouble = None
        self.lived = 0
        self.done = 0

    def programs(self):
        """The test programs that this run may ask."""
        asked = {test for mutant in self.chosen for test in mutant.tests}
        return sorted(asked | (programs_of_the_tree(UNIT_TESTS) - ASKED_BY_NAME_ALONE))

    def prepare(self, copy):
        if not copy.make(*self.programs()):
            raise Trouble(f"the tree does not compile without any mutant\n{copy.said[-3000:]}")

    def measure(self, copy):
        for name in self.programs():
            started = time.monotonic()
            failure = copy.first_failure(name, 1800)
            if failure:
                raise Trouble(f"without any mutant {failure} fails")
            self.seconds[name] = time.monotonic() - started

    def tests_of(self, mutant):
        others = [name for name in sorted(self.seconds, key=self.seconds.get)
                  if name not in mutant.tests and name in programs_of_the_tree(UNIT_TESTS)]
        return mutant.tests + ([] if mutant.lives else others)

    def killer_of(self, copy, mutant):
        restore = copy.replace(mutant)
        try:
            for name in self.tests_of(mutant):
                # A program may still have the header of the mutant before this one in it.
                copy.make_or_stop(mutant, name)
                killer = copy.first_failure(name, 5 * self.seconds[name] + PATIENCE_SECONDS)
                if killer:
                    return killer
            return None
        finally:
            restore()

    def tell(self, mutant, killer, seconds):
        with self.lock:
            self.done += 1
            if seconds is not None:
                self.results.add(mutant, killer)
            verdict = f"killed by {killer}" if killer else f"lives: {mutant.lives or 'NO TEST SEES IT'}"
            self.lived += 0 if killer or mutant.lives else 1
            took = "known" if seconds is None else f"{seconds:.0f} s"
            print(f"{self.done:3}/{len(self.chosen)}  {mutant.group}: {mutant.name}: {verdict} ({took})",
                  flush=True)

    def work(self, copy):
        try:
            while self.trouble is None:
                try:
                    mutant = self.waiting.get_nowait()
                except queue.Empty:
                    return
                started = time.monotonic()
                killer = self.killer_of(copy, mutant)
                self.tell(mutant, killer, time.monotonic() - started)
        except Exception as trouble:  # what goes wrong in one thread ends the run
            self.trouble = trouble

    def workplace(self):
        if self.folder:
            return contextlib.nullcontext(self.folder)
        return tempfile.TemporaryDirectory(prefix="loamfec-mutants-")

    def all(self):
        for mutant in self.chosen:
            known = self.results.of(mutant)
            if known:
                self.tell(mutant, known["killer"], None)
            else:
                self.waiting.put(mutant)
        if self.waiting.empty():
            return
        with self.workplace() as folder:
            print("building the mutants' common ground", flush=True)
            copies = [Copy(os.path.join(folder, str(at)), self.jobs) for at in range(self.jobs)]
            for copy in copies:
                self.prepare(copy)
                copy.jobs = 1
            self.measure(copies[0])
            threads = [threading.Thread(target=self.work, args=(copy,)) for copy in copies]
            for thread in threads:
                thread.start()
            try:
                for thread in threads:
                    thread.join()
            except BaseException:
                self.trouble = Trouble("ended")
                for thread in threads:
                    thread.join()
                raise
        if self.trouble:
            raise self.trouble


def parsed(arguments):
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("names", nargs="*", metavar="NAME")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--results")
    parser.add_argument("--folder")
    parser.add_argument("--from", dest="first", type=int, default=1)
    return parser.parse_args(arguments)


def main(arguments):
    options = parsed(arguments)
    mutants = load()
    findings = check(mutants)
    if findings:
        raise Trouble("\n".join(findings + ["bring the mutants in line with the source"]))
    if options.check:
        print(f"{len(mutants)} mutants fit their sources")
        return 0
    chosen = chosen_of(mutants, options.names)[options.first - 1:]
    if options.list:
        for number, mutant in enumerate(chosen, options.first):
            print(f"{number:3}  {mutant.group}: {mutant.name}")
        return 0
    run = Run(chosen, Results(options.results), options.jobs, options.folder)
    run.all()
    killed = sum(1 for mutant in chosen if run.results.of(mutant)["killer"])
    print(f"{killed} killed, {len(chosen) - killed - run.lived} that nobody can see, "
          f"{run.lived} that live; {len(chosen)} mutants")
    return 1 if run.lived else 0


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("mutants: ended"))
    try:
        sys.exit(main(sys.argv[1:]))
    except Trouble as trouble:
        print(f"mutants: {trouble}", file=sys.stderr)
        sys.exit(2)
