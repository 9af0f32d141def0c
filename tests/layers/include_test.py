#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the layers of ARCHITECTURE.md to what the compiler says.

    python3 tests/layers/include_test.py SOURCE_FOLDER COMPILE_COMMANDS

For each ordered pair of layers, the second of which is not below the first, a file of the first one,
compiled as its own files are, includes a header of the second: that must not compile. Then each layer
is asked which headers it finds: all of the layers below it, and no other. Its files are all compiled
with the same include roots, but for the files of EXCEPTIONS, which have one more.

Exit code: 0 when all is as LAYERS says, 1 when not.
"""

import json
import os
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

# Each layer: a target that is compiled for it, the folders of its headers as others write them in an
# include, and the layers that it may include. What those may include it may as well, but for the
# inside of another layer.
LAYERS = {
    "Pell": ("Pell", {"src/platform/Pell/include": ["Pell"]}, []),
    "Zev": ("Zev", {"src/platform/Zev/include": ["Zev"]}, ["Pell"]),
    "Wirex": ("Wirex", {"src/platform/Wirex/include": ["Wirex"]}, ["Pell"]),
    "Vanta": ("Vanta", {"src/platform/Vanta/include": ["Vanta"]}, ["Zev"]),
    "Glint": ("Glint", {"src/platform/Glint/include": ["Glint"]}, ["Vanta", "Glint inside"]),
    "Asic": ("Asic", {"src/framework/Asic/include": ["Asic"]}, ["Glint"]),
    "LoamAdjLib": ("LoamAdjLib", {"src/platform/LoamAdjLib/include": ["LoamAdjLib"]},
                   ["Asic", "Wirex"]),
    "records": ("records", {"src/framework/records/include": ["records"]}, ["LoamAdjLib"]),
    "fec": ("LoamFec", {"src/fec/include": ["fec"]}, ["records"]),
    "hardware": ("hardware", {"hardware/include": ["hardware"]}, ["fec", "hardware inside"]),
    "captures": ("captures", {"captures/include": ["captures"]}, ["records"]),
    "agent": ("agent", {"agent/include": ["agent"]}, ["hardware"]),
    "replay": ("replay", {"replay/include": ["replay"]}, ["agent", "captures", "replay inside"]),
    "tools": ("tools", {"tools/include": ["tools"]}, ["captures", "Glint inside", "tools inside"]),
    "fecd": ("fecd", {}, ["replay", "programs inside"]),
    "fecctl": ("fecctl", {}, ["tools", "programs inside"]),
    "testing": ("loamTesting", {"testing/include": ["testing"]}, ["Zev"]),
    # These have their headers beside those of the one before.
    "fec testing": ("loamFecTesting", {}, ["testing", "fec"]),
    "step testing": ("loamStepTesting", {}, ["testing", "Glint", "Glint inside"]),
    "state testing": ("loamStateTesting", {}, ["testing", "Glint", "Glint inside"]),
}
# Headers that only a layer itself includes, and the layers that name them above.
INSIDES = {"Glint inside": {"src/platform/Glint": ["format", "table", "folder", "offline"]},
           "hardware inside": {"hardware": [""]},
           "replay inside": {"replay": [""]},
           "tools inside": {"tools": [""]},
           "programs inside": {"programs": [""]}}
# Folders whose headers are no layer's.
OUTSIDE = {".git", "bench", "build", "examples", "tests"}
# Files that see the inside of Glint although their layers do not: they generate the maps of row types.
EXCEPTIONS = {"src/framework/Asic/GroupLogRows.cpp": "src/platform/Glint",
              "src/framework/records/FecSharedRows.cpp": "src/platform/Glint"}


def allowed(layer):
    """The layers whose headers the layer may include, itself among them."""
    seen = {layer}
    for below in LAYERS[layer][2]:
        seen |= {below} if below in INSIDES else allowed(below) - set(INSIDES)
    return seen


def headers(roots):
    """What files write to include each header below the roots."""
    found = []
    for root, folders in roots.items():
        for folder in folders:
            names = sorted(os.listdir(os.path.join(root, folder)))
            found += [os.path.join(folder, name) for name in names if name.endswith(".h")]
    return found


def check_all_named(roots):
    """The headers, a line each, that stand in none of the roots' folders."""
    named = {os.path.join(root, header)
             for folders in roots.values() for root, names in folders.items()
             for header in headers({root: names})}
    there = set()
    for where, folders, names in os.walk("."):
        folders[:] = [name for name in folders if where != "." or name not in OUTSIDE]
        there |= {os.path.relpath(os.path.join(where, name)) for name in names
                  if name.endswith(".h")}
    return "\n".join(f"{header} is in no layer" for header in sorted(there - named))


def files_of(target, commands):
    """How each file of the target is compiled, by its path below the source folder."""
    files = {os.path.relpath(entry["file"]): shlex.split(entry["command"]) for entry in commands
             if f"CMakeFiles/{target}.dir/" in entry["command"]}
    if not files.keys() - EXCEPTIONS.keys():
        raise SystemExit(f"{sys.argv[0]}: no file of the target {target} is compiled")
    return files


def command_of(files):
    """How a file that is no exception is compiled, from standard input, and where it stands."""
    file = min(files.keys() - EXCEPTIONS.keys())
    words = files[file]
    kept = words[:words.index("-o")] + ["-fsyntax-only", "-x", "c++", "-"]
    # What would write files beside the source.
    dropped = {"-MD", "-MT", "-MF", "--coverage"}
    command = [word for at, word in enumerate(kept)
               if word not in dropped and (at == 0 or kept[at - 1] not in {"-MT", "-MF"})]
    return command, os.path.abspath(os.path.dirname(file))


def check_roots(files):
    """The files, a line each, whose include roots are not those of the others."""
    roots = {file: {os.path.relpath(word[2:]) for word in words if word.startswith("-I")}
             for file, words in files.items()}
    plain = roots[min(files.keys() - EXCEPTIONS.keys())]
    wrong = [file for file, those in roots.items()
             if those != plain | ({EXCEPTIONS[file]} if file in EXCEPTIONS else set())]
    return "\n".join(f"{file} has include roots of its own" for file in sorted(wrong))


def compile_text(text, command, folder):
    return subprocess.run(command, cwd=folder, input=text, capture_output=True, text=True,
                          check=False)


def check_pair(layer, header, command, folder):
    """What is wrong with how the layer fails to include the header; empty if nothing is."""
    result = compile_text(f'#include "{header}"\n', command, folder)
    if result.returncode == 0:
        return f"{layer} includes {header}, which is not below it"
    if f"{header}: No such file" in result.stderr or f"'{header}' file not found" in result.stderr:
        return ""
    return f"{layer} fails to include {header} for another reason:\n{result.stderr}"


def check_all(layer, by_layer, command, folder):
    """What is wrong with which headers, of all layers, the layer's files find."""
    lines = []
    for other, names in by_layer.items():
        unless = "!" if other in allowed(layer) else ""
        for name in names:
            lines += [f'#if {unless}__has_include("{name}")', f'#error wrong: {name}', "#endif"]
    result = compile_text("\n".join(lines) + "\n", command, folder)
    wrong = [line for line in result.stderr.splitlines() if "#error wrong" in line]
    return "" if result.returncode == 0 else f"{layer}, header by header:\n" + "\n".join(wrong)


def main():
    source, commands_file = sys.argv[1:]
    os.chdir(source)
    with open(commands_file, encoding="utf-8") as file:
        commands = json.load(file)
    roots = {name: layer[1] for name, layer in LAYERS.items() if layer[1]} | INSIDES
    by_layer = {name: headers(folders) for name, folders in roots.items()}
    files = {name: files_of(layer[0], commands) for name, layer in LAYERS.items()}
    compiled = {name: command_of(those) for name, those in files.items()}
    findings = [check_all_named(roots)] + [check_roots(those) for those in files.values()]
    with ThreadPoolExecutor(max_workers=len(os.sched_getaffinity(0))) as pool:
        pairs = [pool.submit(check_pair, layer, names[0], *compiled[layer])
                 for layer in LAYERS
                 for other, names in by_layer.items() if other not in allowed(layer)]
        wholes = [pool.submit(check_all, layer, by_layer, *compiled[layer]) for layer in LAYERS]
        findings += [answer.result() for answer in pairs + wholes]
    findings = [finding for finding in findings if finding]
    print(f"{len(pairs)} wrong includes tried, {len(LAYERS)} layers asked for each of "
          f"{sum(map(len, by_layer.values()))} headers: {len(findings)} findings")
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
