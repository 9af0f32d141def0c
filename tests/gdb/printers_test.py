#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs gdb on PrinterProgram and compares what the printers print, living and from a core file.

    printers_test.py GDB PRINTERS PROGRAM
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

GDB, PRINTERS, PROGRAM = sys.argv[1:4]

LOG_ENTRY = ("key:7 flagA:1 clientDest:0x11/2/3 opaqueA:44 opaqueB:55 flagB:2 "
             "resolvedDest:0x66/7/8")
HANDLE = "key 7, v0.0, state 1 (hardware write pending), logged as 03:01:0805@1"
HANDLE_TYPE = "LoamFec::FecTableDataModelSwTableBase::FecEntryHandle"
MAP = ", ".join(f"[{fec}] = {fec + 1000}" for fec in range(100, 130) if fec != 101)

# Expression in main()'s frame, what is printed; addresses stand as ADDRESS.
EXPECTED = {
    "noHandle": "null",
    "*waiting.object_": "key:6 flagA:0 clientDest:0xffff/0/0 opaqueA:44 opaqueB:0 flagB:0 "
                        "resolvedDest:0xffff/0/0 intfId:eth1; key 6, v0.0, state 0 (not resolved), "
                        "not logged, table 03:01:0805",
    "*committed.object_": "key:0 flagA:0 clientDest:0xffff/0/0 opaqueA:44 opaqueB:0 flagB:0 "
                          "resolvedDest:0xffff/0/0 intfId:eth1; no handle",
    "handle": f"{HANDLE_TYPE} at ADDRESS, held 4 times: {HANDLE}",
    "asDependency": f"{HANDLE_TYPE} at ADDRESS, held 4 times: {HANDLE}",
    "*handle.object_": HANDLE,
    "unlogged": f"{HANDLE_TYPE} at ADDRESS, held 1 times: key 8, v2.3, state 0 (not resolved), "
                "not logged, table 00:00:0000",
    "*dependencies._M_impl._M_start@7": "{" + ", ".join(
        f"testing_support::FakeDependency at ADDRESS, held 1 times: state {state}"
        for state in ("0 (not resolved)", "1 (hardware write pending)", "2 (dependency failed)", "3 (done)",
                      "4 (commit failed)", "5 (resource failed)", "6 (unknown)")) + "}",
    "*resource.object_": "interface eth1, update 2, state 3 (done), destination 0x64/1/11",
    "resource": "testing_support::ScriptedResourceHandle at ADDRESS, held 1 times: interface eth1, "
                "update 2, state 3 (done), destination 0x64/1/11",
    "needed": "Asic::NeededEntry at ADDRESS, held 1 times",
    "plain": "(anonymous namespace)::Plain at ADDRESS, held 1 times",
    "*&declared": "(anonymous namespace)::Declared at ADDRESS",
    "emptyMap": "hash map of 0",
    "map": f"hash map of 29 = {{{MAP}}}",
    "handles": f"hash map of 2 = {{[7] = {HANDLE_TYPE} at ADDRESS, held 4 times: {HANDLE}, [8] = null}}",
    "*logRows._M_impl._M_start@4": "{" + ", ".join(
        f"version:9 operation:{operation} unitId:3 {LOG_ENTRY}"
        for operation in ("0 (entry written)", "1 (entry deleted)", "2 (table deleted)", "3 (unknown)")) + "}",
    "configRow": f"version:9 isDeleted:1 intfId:eth1 {LOG_ENTRY}",
    "groupRow": "sequence:12 03:01:0805@9 needs {03:01:0806@4, 03:01:0805@5} continued",
    "lastGroupRow": "sequence:13 03:01:0805@9 needs {} continuation",
    "fullGroupRow": f"sequence:14 03:01:0805@9 needs {{{', '.join(['00:00:0000@0'] * 8)}}}",
    "damagedGroupRow": "sequence:13 03:01:0805@9 needs {implausible count 9}",
    "appliedRow": "03:01:0806@4 applied",
    "entry": f"{LOG_ENTRY} intfId:eth1",
    "entry.clientDest": "0x11/2/3",
    "configRow.logEntry_": LOG_ENTRY,
    "resource.object_->key_": "eth1",
    "key": "7",
    "resourceKeys": "{intfId = swp1s0}",
    "logVersion": "9",
    "majorVersion": "6",
    "entryVersion": "2.3",
    "tableVersion": "03:01:0805@9",
    "kTable": "03:01:0805",
    "unitId": "3",
    "destId": "0x64/1/11",
}
IDENTIFIERS = "*ids._M_impl._M_start@519"


def run_gdb(target, printers, before, expressions):
    """What gdb prints of each expression in main()'s frame, and what the program itself printed."""
    command = [GDB, "-nx", "-q", "-batch", "-iex", "set auto-load off", "-iex", "set debuginfod enabled off",
               "-ex", "set width 0", "-ex", "set print elements 0", "-ex", "set print repeats 0"]
    if printers:
        command += ["-x", PRINTERS]
    for each in before + ["frame function main"]:
        command += ["-ex", each]
    for expression in expressions:
        command += ["-ex", f"echo @@{expression}\\n", "-ex", f"print {expression}"]
    done = subprocess.run(command + target, capture_output=True, text=True, timeout=600, check=False)
    program, *sections = re.split(r"^@@", done.stdout, flags=re.MULTILINE)
    printed = {}
    for section in sections:
        expression, _, text = section.partition("\n")
        text = re.sub(r"^\$[0-9]+ = ", "", text.strip())
        printed[expression] = re.sub(r" at 0x[0-9a-f]{6,}", " at ADDRESS", text)
    if printed.keys() != set(expressions):
        raise RuntimeError(f"gdb did not come to its end:\n{done.stdout}\n{done.stderr}")
    return program, printed


class Printers(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            core = str(pathlib.Path(folder) / "core")
            stop = ["break shown", "run"]
            cls.program, cls.living = run_gdb([PROGRAM], True, stop + [f"generate-core-file {core}"],
                                              [*EXPECTED, IDENTIFIERS])
            _, cls.dead = run_gdb([PROGRAM, core], True, [], [*EXPECTED, IDENTIFIERS])
        _, cls.raw = run_gdb([PROGRAM], False, stop, [*EXPECTED])

    def test_each_kind_is_printed_in_the_words_of_the_traces(self):
        for expression, text in EXPECTED.items():
            with self.subTest(expression):
                self.assertEqual(self.living[expression], text)

    def test_a_core_file_is_printed_like_the_living_program(self):
        self.assertEqual(self.dead, self.living)

    def test_gdb_alone_prints_none_of_it(self):
        for expression, text in EXPECTED.items():
            with self.subTest(expression):
                self.assertNotEqual(self.raw[expression], text)

    def test_identifiers_print_the_names_that_the_program_gives_them(self):
        names = re.findall(r"^name (.*)$", self.program, flags=re.MULTILINE)
        self.assertEqual(len(names), 7 + 2 * 256)
        printed = re.search(r"\{(.*)\}$", self.living[IDENTIFIERS]).group(1)
        self.assertEqual(printed.split(", "), names)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
