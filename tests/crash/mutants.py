#!/usr/bin/env python3
"""Breaks the rules of the shared-table protocol one at a time and shows which test notices.

    python3 tests/crash/mutants.py            every mutant; half an hour on 2 cores
    python3 tests/crash/mutants.py NAME...    only these
    python3 tests/crash/mutants.py --list     what there is

Works on a copy of the work tree below the temporary folder; the tree itself is not touched. Each
mutant replaces a piece of source that must be there exactly once, so that no mutant goes stale
unnoticed. Exit code: 0 when every mutant was killed, save those that this processor cannot reveal;
1 when one lived; 2 when something else went wrong.
"""

import os
import re
import subprocess
import sys
import tempfile
import time

ROW = "src/platform/Glint/RowAccess.h"
WORD = "src/platform/Glint/SharedWord.h"
TABLE = "src/platform/Glint/Table.cpp"
FORMAT = "src/platform/Glint/Format.h"
FOLDER = "src/platform/Glint/RootFolder.cpp"
ENTRY_LOG = "src/fec/FecTableEntryLog.cpp"
GROUP_LOG = "src/framework/Asic/GroupLog.cpp"

# x86 keeps stores in order and loads in order, so these live there.
ORDER_ONLY = "not to be seen on x86, which keeps the order by itself"

# Name, file, what is replaced, by what, and for some why they may live.
MUTANTS = [
    ("update is published before its copy is filled", ROW,
     """    const Seq next = fillIdle(slot, seq, row);
    storeRelease(*view_->slot(slot), next.word());
  }

  Seq fillIdle""",
     """    storeRelease(*view_->slot(slot), seq.published().word());
    (void)fillIdle(slot, seq, row);
  }

  Seq fillIdle""", None),
    ("update fills the live copy", ROW,
     "fillCopy(copyAt(slot, next.copy()), row, next.word());",
     "fillCopy(copyAt(slot, seq.copy()), row, next.word());", None),
    ("insert is live before it is linked", ROW,
     """    storeRelease(head, Link::to(slot).word());
    storeRelease(*view_->slot(slot), next.word());""",
     """    storeRelease(*view_->slot(slot), next.word());
    storeRelease(head, Link::to(slot).word());""", None),
    ("insert is live before its copy is filled", ROW,
     """    const Seq next = fillIdle(slot, seq, row);
    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));""",
     """    storeRelease(*view_->slot(slot), seq.published().word());
    const Seq next = fillIdle(slot, seq, row);
    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));""", None),
    ("insert is reachable before its link is set", ROW,
     """    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));
    storeRelease(head, Link::to(slot).word());""",
     """    const std::uint32_t after = loadRelaxed(head);
    storeRelease(head, Link::to(slot).word());
    storeRelaxed(view_->linkAfter(slot), after);""", None),
    ("insert forgets what it links in front of", ROW,
     "storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));",
     "storeRelaxed(view_->linkAfter(slot), Link::end().word());", None),
    ("published seq does not flip the copy", FORMAT,
     "{version() + 1, true, copy() ^ 1U}", "{version() + 1, true, copy()}", None),
    ("published seq keeps its version", FORMAT,
     "{version() + 1, true, copy() ^ 1U}", "{version(), true, copy() ^ 1U}", None),
    ("deleted seq keeps its version", FORMAT,
     "{version() + 1, false, copy()}", "{version(), false, copy()}", None),
    ("delete does not unlink", ROW,
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    table_->rowDeleted""",
     """    table_->rowDeleted""", None),
    ("delete unlinks before the row is dead", ROW,
     """    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());
    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));""",
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());""", None),
    ("delete leaves the seq live", ROW,
     """    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());
""", "", None),
    ("delete does not raise the generation", TABLE,
     """void Table::rowDeleted(std::uint32_t slot) {
  generationIs(generation_ + 2);""",
     """void Table::rowDeleted(std::uint32_t slot) {""", None),
    ("slot is free before it is unlinked", ROW,
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    table_->rowDeleted(place.slot);""",
     """    table_->rowDeleted(place.slot);
    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));""",
     "only a reader's first walk can be led astray by it: a miss is confirmed by a second one within "
     "the same generation, which has room for one delete only"),
    ("slot's version passes its bound", ROW,
     "PELL_ASSERT_MESSAGE(seq.version() + 2 < Seq::kVersionLimit,",
     "PELL_ASSERT_MESSAGE(seq.version() + 1 < Seq::kVersionLimit,", None),
    ("checksum leaves the seq out", WORD,
     "return XXH3_64bits(words.data(), sizeof words);",
     "return XXH3_64bits(words.data(), sizeof words - 8);", None),
    ("checksum leaves the last word out", WORD,
     "return XXH3_64bits(words.data(), sizeof words);",
     "auto some = words; some[kWords - 1] = 0; return XXH3_64bits(some.data(), sizeof some);", None),
    ("copy is believed without its checksum", WORD,
     "return out.checksum() == checksum ? CopyState::good : CopyState::damaged;",
     "(void)checksum; return CopyState::good;", None),
    ("copy is believed without a second look at seq", WORD,
     """  if (loadRelaxed(seqWord) != seq) {
    return CopyState::changed;
  }
""", "  (void)seqWord;\n", None),
    ("miss is believed without the generation", ROW,
     """    fenceBeforeSecondLook();
    return loadRelaxed(view_->header().generation) == generation;""",
     """    fenceBeforeSecondLook();
    (void)generation;
    return true;""", None),
    ("miss is believed without a look at the chain's rows", ROW,
     "    return confirmAbsent(key, chain, generation);",
     "    return sameGeneration(generation) ? Answer::absent : Answer::changed;", None),
    ("reader uses the index while it is rebuilt", ROW,
     """    if ((generation & 1U) != 0) {
      return Answer::changed;
    }
""", "", None),
    ("check of links is not looked at", FORMAT,
     "constexpr bool valid() const { return withCheck(word_ & kMaxSlots) == word_; }",
     "constexpr bool valid() const { return true; }", None),
    ("check of seqs is not looked at", FORMAT,
     "constexpr bool valid() const { return withCheck(word_ & kValueMask) == word_; }",
     "constexpr bool valid() const { return true; }", None),
    ("check of counters is not looked at", FORMAT,
     "constexpr bool valid() const { return of(value()).word_ == word_; }",
     "constexpr bool valid() const { return true; }", None),
    ("chain is followed without a bound", ROW,
     "      if (hops == view_->fixed().slotCount) {", "      if (hops == 0xFFFFFFFFU) {", None),
    ("mount leaves a delete in flight linked", TABLE,
     """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
    generationIs(generation_ + 2);
    if""",
     """    if""", None),
    ("mount forgets the slot of a change in flight", TABLE,
     """    if (!Seq(loadRelaxed(*view_.slot(change.slot))).retired()) {
      freeSlots_.push_back(change.slot);
    }
  }
  for (const Pell::String& finding""",
     """  }
  for (const Pell::String& finding""", None),
    ("mount leaves damaged rows in use", TABLE,
     """    countCorruption(1);
    retire(row.slot);
""", """    countCorruption(1);
""", None),
    ("mount leaves an unfinished index as it is", TABLE,
     """  if (found.indexUnfinished) {
    rebuildIndex();
  }
""", "", None),
    ("mount believes the row counter", TABLE,
     "  rowCount_ = found.liveSlots;",
     "  rowCount_ = Counter(loadRelaxed(view_.header().rowCount)).value();", None),
    ("retirement does not unlink", TABLE,
     """  std::erase(freeSlots_, slot);
  unlinkWherever(slot);
""", """  std::erase(freeSlots_, slot);
""", None),
    ("index is rebuilt with an even generation", TABLE,
     "  generationIs(generation_ | 1U);\n", "  generationIs(generation_ + 2);\n", None),
    ("slots are published before they are made", TABLE,
     """  for (std::uint32_t slot = first + count; slot-- > first;) {
    storeRelaxed(*view_.slot(slot), Seq(0, false, 0).word());""",
     """  storeRelease(view_.header().slotsInUse, Counter::of(first + count).word());
  for (std::uint32_t slot = first + count; slot-- > first;) {
    storeRelaxed(*view_.slot(slot), Seq(0, false, 0).word());""", None),
    ("scratchpad is published before it is filled", TABLE,
     """  fillCopy(&pad.copies[next.copy()].checksum, row, next.word());
  storeRelease(pad.seq, next.word());""",
     """  storeRelease(pad.seq, next.word());
  fillCopy(&pad.copies[next.copy()].checksum, row, next.word());""", None),
    ("file gets its name before its contents", TABLE,
     "  if (const int error = writeNewFile(file.get(), layout, fileName); error != 0) {",
     "  root.publish(fileName);\n"
     "  if (const int error = writeNewFile(file.get(), layout, fileName); error != 0) {", None),
    ("second writer is not kept out", FOLDER,
     "if (::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) {",
     "if (false && ::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) {", None),
    ("mount unlinks without raising the generation", TABLE,
     """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
    generationIs(generation_ + 2);
""", """    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
""", None),
    ("retirement does not raise the generation", TABLE,
     """  storeRelease(word, after.word());
  generationIs(generation_ + 2);
""", """  storeRelease(word, after.word());
""", None),
    ("log row is written before the configuration row", ENTRY_LOG,
     """  (*held)->swTableEntriesIs({logEntry, rsrcKeys, version, false});
  logChange({version, FecTableDataModelLogGlintEntry::kEntryWritten, unitId, logEntry},
            neededEntry);
""", """  logChange({version, FecTableDataModelLogGlintEntry::kEntryWritten, unitId, logEntry},
            neededEntry);
  (*held)->swTableEntriesIs({logEntry, rsrcKeys, version, false});
""", None),
    ("log's version rises before its row is there", ENTRY_LOG,
     """  logGlint().entryLogConfigIs(row);
  log().control().scratchpadIs(row.version().value());
""", """  log().control().scratchpadIs(row.version().value());
  logGlint().entryLogConfigIs(row);
""", None),
    ("group log is written before the log's version rises", ENTRY_LOG,
     """  log().control().scratchpadIs(row.version().value());
  groupLogInterface()->addGroupLogEntry(tableId(), row.version(), neededEntry);
""", """  groupLogInterface()->addGroupLogEntry(tableId(), row.version(), neededEntry);
  log().control().scratchpadIs(row.version().value());
""", None),
    ("group log's rows go before the applied version is there", GROUP_LOG,
     """  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
  std::deque<Pending>& rows = pending(applied.tableId());
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
""", """  std::deque<Pending>& rows = pending(applied.tableId());
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
""", None),
    ("no fence before a copy is filled", WORD,
     "  fenceBeforeFill();\n", "", ORDER_ONLY),
    ("no fence before the second look at seq", WORD,
     "  out.words[kWords] = seq;\n  fenceBeforeSecondLook();\n", "  out.words[kWords] = seq;\n",
     ORDER_ONLY),
    ("seq is read without acquire", ROW,
     "const Seq seq(loadAcquire(*view_->slot(slot)));",
     "const Seq seq(loadRelaxed(*view_->slot(slot)));", ORDER_ONLY),
]

# The tests that know the protocol, in the order in which a mutant meets them: those of one table,
# and those of the order between tables.
TABLE_TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]
AGENT_TESTS = ["FecTableEntryLogTest", "AgentCrashTest"]
FOLDERS = "crash|format|unit/platform/Glint|unit/fec|unit/framework"


def run(command, **options):
    return subprocess.run(command, check=True, **options)


class DoesNotCompile(Exception):
    pass


class Copy:
    """The work tree's sources in a folder of their own, with a build of their own."""

    def __init__(self, folder):
        self.folder = folder
        self.build = os.path.join(folder, "build/mutants")
        listed = run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                     capture_output=True).stdout
        run(["tar", "--null", "--files-from=-", "--create", "--file", f"{folder}/tree.tar"],
            input=listed)
        run(["tar", "--extract", "--file", f"{folder}/tree.tar", "--directory", folder])
        # A mutant may leave something unused.
        self.replace("cmake/LoamFec.cmake", "            -Werror)", "            -Wno-error)")
        run(["cmake", "--preset", "dev", "-B", self.build, "--log-level=WARNING",
             "-DLOAMFEC_BENCH=OFF", f"-DLOAMFEC_TEST_FOLDERS={FOLDERS}"],
            cwd=folder, stdout=subprocess.DEVNULL)

    def replace(self, file, old, new):
        path = os.path.join(self.folder, file)
        with open(path, encoding="utf-8") as source:
            text = source.read()
        if text.count(old) != 1:
            raise SystemExit(f"mutants: {file} has {text.count(old)} places that read\n{old}\n"
                             "bring the mutant in line with the source")
        with open(path, "w", encoding="utf-8") as source:
            source.write(text.replace(old, new))
        return lambda: self.restore(path, text)

    @staticmethod
    def restore(path, text):
        with open(path, "w", encoding="utf-8") as source:
            source.write(text)

    def build_test(self, test):
        built = subprocess.run(["cmake", "--build", self.build, "--parallel", str(os.cpu_count()),
                                "--target", test],
                               cwd=self.folder, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
        if built.returncode != 0:
            raise DoesNotCompile

    def first_failure(self, tests):
        """What fails first of the tests, or None when all pass. Builds no more than it needs."""
        for test in tests:
            self.build_test(test)
            ended = subprocess.run(
                ["ctest", "--test-dir", self.build, "--tests-regex", f"^{test}[.]", "--parallel",
                 str(os.cpu_count()), "--stop-on-failure", "--timeout", "60",
                 "--no-tests=error", "--output-on-failure"],
                cwd=self.folder, capture_output=True, text=True, errors="replace")
            if ended.returncode != 0:
                failed = re.search(r"^\s*\d+ - ([^\s<]+).* \((.*)\)$", ended.stdout, re.MULTILINE)
                return f"{failed.group(1)} ({failed.group(2)})" if failed else "the run of the tests"
        return None


def killer_of(copy, mutant):
    """The test that kills the mutant, or None."""
    name, file, old, new, _ = mutant
    restore = copy.replace(file, old, new)
    try:
        return copy.first_failure(AGENT_TESTS if file in (ENTRY_LOG, GROUP_LOG) else TABLE_TESTS)
    except DoesNotCompile:
        raise SystemExit(f"mutants: '{name}' does not compile; mend the mutant") from None
    finally:
        restore()


def main(arguments):
    if arguments == ["--list"]:
        for name, *_ in MUTANTS:
            print(name)
        return 0
    unknown = [name for name in arguments if name not in [mutant[0] for mutant in MUTANTS]]
    if unknown:
        print(f"mutants: there is no mutant '{unknown[0]}'; --list names them", file=sys.stderr)
        return 2
    chosen = [mutant for mutant in MUTANTS if not arguments or mutant[0] in arguments]
    lived = 0
    with tempfile.TemporaryDirectory(prefix="loamfec-mutants-") as folder:
        copy = Copy(folder)
        print(f"building {len(chosen)} mutants' common ground", flush=True)
        if copy.first_failure(TABLE_TESTS + AGENT_TESTS):
            print("mutants: the tests fail without any mutant", file=sys.stderr)
            return 2
        for number, mutant in enumerate(chosen, 1):
            started = time.monotonic()
            killer = killer_of(copy, mutant)
            excuse = mutant[4]
            verdict = f"killed by {killer}" if killer else f"lives: {excuse or 'NO TEST SEES IT'}"
            lived += 0 if killer or excuse else 1
            seconds = time.monotonic() - started
            print(f"{number:2}/{len(chosen)}  {mutant[0]}: {verdict} ({seconds:.0f} s)", flush=True)
    print(f"{len(chosen) - lived} of {len(chosen)} accounted for")
    return 1 if lived else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
