#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads the shared tables of a state folder, from what docs/format/ says and nothing else.

    read-state.py [fec|log|group-log|applied]... [--state DIR] [--unit N] [--json]
    read-state.py fec --key 7 --key 8       only these keys, found through the index
    read-state.py --self-test

Works beside a living agent and after it was killed; never writes, never waits. Damaged rows are left
out and named on standard error. Exit codes: 0 done; 1 something is damaged; 2 usage; 3 a table cannot
be read at all.

Python's standard library only. Where processors may reorder loads (not x86), use it on tables that
nobody is writing: Python has no fences.
"""

import argparse
import json
import mmap
import os
import stat
import struct
import sys

MASK64 = (1 << 64) - 1
MULTIPLIER64 = 0x9E3779B97F4A7C15
MULTIPLIER32 = 0x9E3779B1
PAGE = 4096


class Refused(Exception):
    """A file that is not the table that was asked for."""


class Damaged(Exception):
    """Bytes that no writer can have left."""


class Changed(Exception):
    """The writer was at the same place at the same time: look again."""


# ---- docs/format/xxh3.md

SECRET = bytes.fromhex("""
    b8 fe 6c 39 23 a4 4b be 7c 01 81 2c f7 21 ad 1c de d4 6d e9 83 90 97 db 72 40 a4 a4 b7 b3 67 1f
    cb 79 e6 4e cc c0 e5 78 82 5a d0 7d cc ff 72 21 b8 08 46 74 f7 43 24 8e e0 35 90 e6 81 3a 26 4c
    3c 28 52 bb 91 c3 00 cb 88 d0 65 8b 1b 53 2e a3 71 64 48 97 a2 0d f9 4e 38 19 ef 46 a9 de ac d8
    a8 fa 76 3f e3 9c 34 3f f9 dc bb c7 c7 0b 4f 1d 8a 51 e0 4b cd b4 59 31 c8 9f 7e c9 d9 78 73 64
    ea c5 ac 83 34 d3 eb c3 c5 81 a0 ff fa 13 63 eb 17 0d dd 51 b7 f0 da 49 d3 16 55 26 29 d4 68 9e
    2b 16 be 58 7d 47 a1 fc 8f f8 b8 d1 7a d0 31 ce 45 cb 3a 8f 95 16 04 28 af d7 fb ca bb 4b 40 7e
""")
PRIME = 0x9E3779B185EBCA87


def xxh3(data):
    """XXH3, 64 bits, of 9 to 240 bytes."""
    n = len(data)

    def s(at):
        return int.from_bytes(SECRET[at:at + 8], "little")

    def word(at):
        return int.from_bytes(data[at:at + 8], "little")

    def fold(a, b):
        product = a * b
        return (product & MASK64) ^ (product >> 64)

    def mix(at, secret):
        return fold(word(at) ^ s(secret), word(at + 8) ^ s(secret + 8))

    def swap(a):
        return int.from_bytes(a.to_bytes(8, "little"), "big")

    def finish(a):
        a &= MASK64
        a ^= a >> 37
        a = a * 0x165667919E3779F9 & MASK64
        return a ^ a >> 32

    if 9 <= n <= 16:
        low = word(0) ^ s(24) ^ s(32)
        high = word(n - 8) ^ s(40) ^ s(48)
        return finish(n + swap(low) + high + fold(low, high))
    a = n * PRIME
    if 17 <= n <= 128:
        for i in range((n - 1) // 32 + 1):
            a += mix(16 * i, 32 * i) + mix(n - 16 * i - 16, 32 * i + 16)
        return finish(a)
    if 129 <= n <= 240:
        for i in range(8):
            a += mix(16 * i, 16 * i)
        a = finish(a)
        for i in range(8, n // 16):
            a += mix(16 * i, 16 * (i - 8) + 3)
        return finish(a + mix(n - 16, 119))
    raise ValueError(f"no checksum of {n} bytes is needed")


# ---- docs/format/shared-tables.md: words with a check

SEQ_VALUE = (1 << 48) - 1
RETIRED_VERSION = (1 << 46) - 1
LINK_END = 0


def seq_word(version, live, copy):
    value = version << 2 | live << 1 | copy
    return value | ((value * MULTIPLIER64 & MASK64) >> 48 ^ 0x5A3C) << 48


class Seq:
    """The word that says whether a slot holds a row, and where."""

    def __init__(self, word, where):
        self.word = word
        self.copy = word & 1
        self.live = word >> 1 & 1
        self.version = (word & SEQ_VALUE) >> 2
        if seq_word(self.version, self.live, self.copy) != word or self.live and not self.version:
            raise Damaged(f"{where}: impossible seq {word:#018x}")

    @property
    def retired(self):
        return not self.live and self.version == RETIRED_VERSION


def link_value(word):
    """The slot number + 1 of a link, 0 at the end of a chain; None if its check does not match."""
    value = word & 0xFFFFFF
    check = (value * MULTIPLIER32 & 0xFFFFFFFF) >> 24 ^ 0x5A
    return value if word >> 24 == check else None


def counter_value(word):
    """The number in a counter; None if its check does not match."""
    value = word & 0xFFFFFFFF
    check = (value * MULTIPLIER64 & MASK64) >> 32 ^ 0x5A3C96E1
    return value if word >> 32 == check else None


# ---- docs/format/shared-tables.md: the file


def whole_pages(count):
    return (count + PAGE - 1) // PAGE * PAGE


HEADER = struct.Struct("<8sIIQIIIIIIII64s56sQQ")
GENERATION_AT, ROW_COUNT_AT, SLOTS_IN_USE_AT, CORRUPTION_COUNT_AT, SCRATCHPAD_AT = 192, 200, 208, 216, 256
INDEX_ATTEMPTS = 64
SLOT_ATTEMPTS = 1 << 16


class Table:
    """A shared table, mapped read-only."""

    def __init__(self, folder, name, rows):
        self.name = name
        data = self._map(folder, name)
        self._read_header(data, rows)
        # Aligned words are read by one load each.
        view = memoryview(data)
        self._words = view.cast("Q")
        self._links = view.cast("I")

    def _map(self, folder, name):
        """The bytes of the file, refused unless it is a plain file of the folder's owner."""
        at = fd = -1
        try:
            at = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC)
            fd = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC, dir_fd=at)
            status = os.fstat(fd)
            if not stat.S_ISREG(status.st_mode) or status.st_uid != os.fstat(at).st_uid:
                raise Refused(f"{name}: not a plain file of the folder's owner")
            if status.st_size < PAGE:
                raise Refused(f"{name}: too short for a shared table")
            return mmap.mmap(fd, status.st_size, flags=mmap.MAP_SHARED, prot=mmap.PROT_READ)
        except OSError as error:
            raise Refused(f"{folder}/{name}: {error.strerror}") from error
        finally:
            for opened in (fd, at):
                if opened >= 0:
                    os.close(opened)

    def _read_header(self, data, rows):
        sealed = bytes(data[:HEADER.size])
        (magic, version, header_bytes, digest, self.row_bytes, self.key_bytes, slot_bytes,
         self.capacity, self.slot_count, self.bucket_count, self.key_hash, chunk, type_name,
         collection, name_digest, checksum) = HEADER.unpack(sealed)
        if magic != b"LOAMTBL\0":
            raise Refused(f"{self.name}: not a shared table (wrong magic)")
        if version != 1:
            raise Refused(f"{self.name}: format version {version}, this program knows version 1")
        if xxh3(sealed[:184]) != checksum:
            raise Refused(f"{self.name}: its header is damaged (checksum)")
        self._row_words = (self.row_bytes + 7) // 8
        sizes_fit = (header_bytes == PAGE and chunk == 1024 and self.key_bytes in (4, 8)
                     and self.key_bytes <= self.row_bytes <= PAGE
                     and slot_bytes == 8 + 2 * (8 + 8 * self._row_words)
                     and 1 <= self.capacity <= self.slot_count < 1 << 24
                     and self.bucket_count == 1 << (self.capacity - 1).bit_length()
                     and self.key_hash in (0, 1) and b"\0" in type_name and b"\0" in collection)
        if not sizes_fit:
            raise Refused(f"{self.name}: its header holds impossible sizes")
        links_at = whole_pages(PAGE + 4 * self.bucket_count)
        slots_at = whole_pages(links_at + 4 * self.slot_count)
        expected = whole_pages(slots_at + slot_bytes * self.slot_count)
        if len(data) != expected:
            raise Refused(f"{self.name}: {len(data)} bytes, its header says {expected}")
        self._heads_at, self._links_at = PAGE // 4, links_at // 4
        self._slots_at, self._slot_words = slots_at // 8, slot_bytes // 8
        if type_name.rstrip(b"\0").decode() != rows.type_name:
            raise Refused(f"{self.name}: it holds rows of {type_name!r}, not of {rows.type_name}")
        figures = (self.row_bytes, self.key_bytes, self.key_hash)
        if digest != rows.digest() or figures != (rows.row_bytes, rows.key_bytes, rows.key_hash):
            raise Refused(f"{self.name}: its rows are laid out differently")
        if collection.rstrip(b"\0").decode() != rows.collection:
            raise Refused(f"{self.name}: it holds the collection {collection!r}")
        if name_digest != xxh3(f"file {self.name}\n".encode()):
            raise Refused(f"{self.name}: it was made for another table (renamed, or a copy of that one)")

    def _generation(self):
        return self._words[GENERATION_AT // 8]

    def _slots_in_use(self):
        value = counter_value(self._words[SLOTS_IN_USE_AT // 8])
        if value is None or value > self.slot_count:
            raise Damaged(f"{self.name}: impossible number of slots in use")
        return value

    def _slot_at(self, slot):
        """Index of the slot's first word, its seq."""
        return self._slots_at + slot * self._slot_words

    def _seq(self, at, where):
        # A second look, in case the first was not one load.
        try:
            return Seq(self._words[at], where)
        except Damaged:
            return Seq(self._words[at], where)

    def _key_of(self, row):
        return int.from_bytes(row[:self.key_bytes], "little")

    def _copy(self, at, row_words, copy):
        """Checksum and row of one copy, not checked."""
        begin = at + 1 + copy * (1 + row_words)
        return self._words[begin], self._words[begin + 1:begin + 1 + row_words].tobytes()

    def _live_row(self, at, row_words, seq, where):
        """The row that a live seq names; raises Changed or Damaged."""
        checksum, row = self._copy(at, row_words, seq.copy)
        if self._words[at] != seq.word:
            raise Changed
        if xxh3(row + seq.word.to_bytes(8, "little")) != checksum:
            raise Damaged(f"{where}: the checksum of the row of key {self._key_of(row)} does not match")
        return row

    def row_of_slot(self, slot):
        """The slot's row, None if it holds none."""
        where, at = f"{self.name}: slot {slot}", self._slot_at(slot)
        for _ in range(SLOT_ATTEMPTS):
            seq = self._seq(at, where)
            if not seq.live:
                return None
            try:
                return self._live_row(at, self._row_words, seq, where)
            except Changed:
                pass
        raise Damaged(f"{where}: its row changed during every look")

    def rows(self, damaged):
        """Every row; of a damaged one damaged(text) is told, and the walk goes on."""
        try:
            slots = range(self._slots_in_use())
        except Damaged as damage:
            damaged(str(damage))
            return
        for slot in slots:
            try:
                row = self.row_of_slot(slot)
            except Damaged as damage:
                damaged(str(damage))
                continue
            if row is not None:
                yield row[:self.row_bytes]

    def scratchpad(self):
        where, at = f"{self.name}: scratchpad", SCRATCHPAD_AT // 8
        for _ in range(SLOT_ATTEMPTS):
            seq = self._seq(at, where)
            if not seq.live:
                break
            try:
                return int.from_bytes(self._live_row(at, 1, seq, where), "little")
            except Changed:
                pass
        raise Damaged(f"{where}: it is damaged")

    def row_count(self):
        """What the header says; counted, if that is damaged."""
        value = counter_value(self._words[ROW_COUNT_AT // 8])
        if value is None:
            value = sum(1 for _ in self.rows(lambda text: None))
        return value

    def bucket(self, key):
        if self.key_hash == 0:
            key = key * MULTIPLIER64 & MASK64
            key ^= key >> 32
        return key & self.bucket_count - 1

    def lookup(self, key):
        """The row of a key, None if there is none; raises Damaged."""
        for _ in range(INDEX_ATTEMPTS):
            generation = self._generation()
            if generation & 1:
                break
            try:
                return self._follow(key, generation)
            except Changed:
                pass
        for slot in range(self._slots_in_use()):
            row = self.row_of_slot(slot)
            if row is not None and self._key_of(row) == key:
                return row[:self.row_bytes]
        return None

    def _chain(self, bucket, generation):
        """The slots on a bucket's chain."""
        hops, at = 0, self._heads_at + bucket
        while True:
            value = link_value(self._links[at])
            if value == LINK_END:
                return
            if value is None or value > self._slots_in_use():
                raise Damaged(f"{self.name}: bucket {bucket}: a link on its chain leads nowhere")
            if hops > self.slot_count:
                self._same(generation)
                raise Damaged(f"{self.name}: bucket {bucket}: its chain is a cycle")
            yield value - 1
            hops, at = hops + 1, self._links_at + value - 1

    def _same(self, generation):
        if self._generation() != generation:
            raise Changed

    def _follow(self, key, generation):
        bucket = self.bucket(key)
        for slot in self._chain(bucket, generation):
            where, at = f"{self.name}: slot {slot}", self._slot_at(slot)
            seq = self._seq(at, where)
            if seq.live and self._key_of(self._copy(at, self._row_words, seq.copy)[1]) == key:
                return self._live_row(at, self._row_words, seq, where)[:self.row_bytes]
        for slot in self._chain(bucket, generation):
            if not self._belongs(slot, bucket, key):
                self._same(generation)
                raise Damaged(f"{self.name}: bucket {bucket}: slot {slot} does not belong on its chain")
        self._same(generation)
        return None

    def _belongs(self, slot, bucket, missing):
        """Whether a slot that a miss passed may be on the bucket's chain."""
        where, at = f"{self.name}: slot {slot}", self._slot_at(slot)
        seq = self._seq(at, where)
        if seq.live:
            key = self._key_of(self._live_row(at, self._row_words, seq, where))
            if key == missing:
                raise Changed
            return self.bucket(key) == bucket
        if seq.retired:
            return True
        inserted = (seq.version + 1, 1 - seq.copy)
        deleted = (seq.version - 1, seq.copy)
        for version, copy in (inserted, deleted) if seq.version > 0 else (inserted,):
            checksum, row = self._copy(at, self._row_words, copy)
            published = seq_word(version, 1, copy).to_bytes(8, "little")
            if xxh3(row + published) == checksum and self.bucket(self._key_of(row)) == bucket:
                return True
        if self._words[at] != seq.word:
            raise Changed
        return False


# ---- docs/format/interface-identifiers.md

ALPHABET = "-_./:@+~#=0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
LOWER = 46
PREFIX_TEXT = """
Ethernet / / /|Port-Channel / / /|Vlan|Loopback|Management / / /|Tunnel|Vxlan|Null|Recirc-Channel|
Switch / / /|Cpu|Fabric / / /|Internal / / /|Backplane / / /|Eth / / /|FastEthernet / / /|
GigabitEthernet / / /|TwoGigabitEthernet / / /|FiveGigabitEthernet / / /|TenGigabitEthernet / / /|
TwentyFiveGigE / / /|FortyGigabitEthernet / / /|HundredGigabitEthernet / / /|TenGigE / / /|
FortyGigE / / /|FiftyGigE / / /|HundredGigE / / /|TwoHundredGigE / / /|FourHundredGigE / / /|
EightHundredGigE / / /|Bundle-Ether|MgmtEth / / /|BVI|PortChannel|port-channel|loopback|mgmt|ge- / / :|
xe- / / :|et- / / :|ae|irb|ethernet- / / /|lo|eth|swp s|veth|vlan|vxlan|bond|team|br|bridge|virbr|vnet|
docker|dummy|tap|tun|tunl|gre|gretap|erspan|sit|ipvlan|macvlan|macvtap|ifb|vrf|peerlink|ppp|wg|wlan|wwan|
usb|enp s f np|ens f np|eno np|wlp s f np|ibp s f np|ibs f np
"""
# Each prefix with the joiners of its second, third and fourth number.
PREFIXES = [(row.split(" ")[0], row.split(" ")[1:]) for row in PREFIX_TEXT.replace("\n", "").split("|")]
NUMBER_FIELDS = ((34, 20), (26, 8), (19, 7), (13, 6), (0, 13))  # lowest bit, bits


def joiners_of(row):
    """Of the five places; None where the prefix has no such place."""
    joiners = PREFIXES[row][1]
    return ["", *joiners, *[None] * (3 - len(joiners)), "."]


def unpack_name(value):
    """The name in a value, possible or not."""
    form, rest = value >> 62, value & (1 << 62) - 1
    if form == 0:
        return ""
    if form == 1:
        row = value >> 54 & 0xFF
        if row >= len(PREFIXES):
            return None
        name = PREFIXES[row][0]
        for (shift, bits), joiner in zip(NUMBER_FIELDS, joiners_of(row)):
            number = value >> shift & (1 << bits) - 1
            if number:
                name += (joiner or "") + str(number - 1)
        return name
    base, digits = (LOWER + 1, 11) if form == 2 else (len(ALPHABET) + 1, 10)
    name = ""
    for _ in range(digits):
        rest, digit = divmod(rest, base)
        name = (ALPHABET[digit - 1] if digit else "") + name
    return name


def pack_numbered(name):
    text = name[:next((i for i, c in enumerate(name) if c in "0123456789."), len(name))]
    rows = [row for row, prefix in enumerate(PREFIXES) if prefix[0] == text]
    if not rows:
        return None
    value, rest = 1 << 62 | rows[0] << 54, name[len(text):]
    for (shift, bits), joiner in zip(NUMBER_FIELDS, joiners_of(rows[0])):
        if joiner is None or not rest.startswith(joiner):
            continue
        after = rest[len(joiner):]
        digits = after[:len(after) - len(after.lstrip("0123456789"))]
        if not digits:
            continue
        if len(digits) > 1 and digits[0] == "0" or int(digits) > (1 << bits) - 2:
            return None
        value |= int(digits) + 1 << shift
        rest = after[len(digits):]
    return None if rest else value


def pack_name(name):
    """The value of a name, None if it has none."""
    if not name:
        return 0
    numbered = pack_numbered(name)
    if numbered is not None:
        return numbered
    capital = any("A" <= c <= "Z" for c in name)
    base, length = (len(ALPHABET) + 1, 10) if capital else (LOWER + 1, 11)
    if len(name) > length or any(c not in ALPHABET for c in name):
        return None
    word = 0
    for place in range(length):
        word = word * base + (ALPHABET.index(name[place]) + 1 if place < len(name) else 0)
    return (3 if capital else 2) << 62 | word


def interface_name(value):
    name = unpack_name(value)
    return name if name is not None and pack_name(name) == value else f"invalid({value:#018x})"


# ---- docs/format/fec-rows.md


class Rows:
    """What is said about one kind of rows."""

    def __init__(self, file, collection, type_name, layout_version, row_bytes, key_bytes, key_hash):
        self.file, self.collection, self.type_name = file, collection, type_name
        self.row_bytes, self.key_bytes, self.key_hash = row_bytes, key_bytes, key_hash
        self._digest_text = f"{type_name}\nversion {layout_version}\nrow {row_bytes}\nkey {key_bytes}\n"

    def digest(self):
        return xxh3(self._digest_text.encode())


LOG = Rows("LoamAdj.LoamAdj.FecTable.log.table", "entryLogConfig",
           "LoamFec::FecTableDataModelLogGlintEntry", 1, 56, 8, 1)
CONFIG = Rows("LoamAdj.FecTable.unit{}.config.table", "swTableEntries",
              "LoamFec::FecTableDataModelConfigGlintEntry", 1, 64, 4, 0)
GROUP = Rows("LoamAdj.LoamAdj.grouplog.table", "groupLog", "Asic::GroupLogRow", 1, 120, 8, 1)
APPLIED = Rows("LoamAdj.LoamAdj.applied.table", "appliedVersions", "Asic::GroupVersionRow", 1, 16, 4, 0)

LOG_ENTRY = struct.Struct("<IB3xIH2xIIIB3xIH2xI")
LOG_ROW = struct.Struct("<QHH44s")
CONFIG_ROW = struct.Struct("<44sQQB3x")
GROUP_ROW = struct.Struct("<QQII96s")
NEEDED = struct.Struct("<IQ")
CONTINUED, CONTINUATION = 1 << 31, 1 << 30  # marks of group rows
APPLIED_ROW = struct.Struct("<I4xQ")


def log_entry(data):
    (key, flag_a, first, second, third, opaque_a, opaque_b, flag_b,
     resolved_first, resolved_second, resolved_third) = LOG_ENTRY.unpack(data)
    return {"fec": key, "flag_a": flag_a, "client_destination": [first, second, third],
            "opaque_a": opaque_a, "opaque_b": opaque_b, "flag_b": flag_b,
            "destination": [resolved_first, resolved_second, resolved_third]}


def gateway(entry):
    """As `fecd replay` keeps it."""
    return ".".join(str(part) for part in struct.pack(">I", entry["opaque_a"])) if entry["flag_a"] else "-"


def config_row(data):
    entry_bytes, interface, version, is_deleted = CONFIG_ROW.unpack(data)
    entry = log_entry(entry_bytes)
    return {"fec": entry["fec"], "interface": interface_name(interface), "gateway": gateway(entry),
            "destination": entry["destination"], "version": version, "is_deleted": is_deleted}


def log_row(data):
    version, operation, unit, entry = LOG_ROW.unpack(data)
    return {"version": version, "operation": operation, "unit": unit, "entry": log_entry(entry)}


def group_row(data):
    sequence, version, table, count_and_marks, needed = GROUP_ROW.unpack(data)
    count = count_and_marks & ~(CONTINUED | CONTINUATION)
    if count > 8:
        raise Damaged(f"group row {sequence}: {count} needed versions, at most 8 can be")
    return {"sequence": sequence, "version": version, "table": table,
            "is_continued": bool(count_and_marks & CONTINUED),
            "is_continuation": bool(count_and_marks & CONTINUATION),
            "needed": [dict(zip(("table", "version"), NEEDED.unpack_from(needed, 12 * i)))
                       for i in range(count)]}


def applied_row(data):
    table, version = APPLIED_ROW.unpack(data)
    return {"table": table, "version": version}


# ---- what this program prints


class Reader:
    """Reads tables of one state folder and remembers what was damaged."""

    def __init__(self, folder, unit, keys):
        self._folder, self._unit, self._keys = folder, unit, keys
        self.findings = []

    def _rows(self, kind, decode, sort_by):
        """The table, and its rows in the order of a field."""
        table = Table(self._folder, kind.file.format(self._unit), kind)
        rows = []
        for data in self._looked_up(table) if self._keys else table.rows(self.findings.append):
            try:
                rows.append(decode(data))
            except Damaged as damage:
                self.findings.append(f"{table.name}: {damage}")
        return table, sorted(rows, key=lambda row: row[sort_by])

    def _looked_up(self, table):
        for key in self._keys:
            try:
                row = table.lookup(key)
            except Damaged as damage:
                self.findings.append(str(damage))
                continue
            if row is not None:
                yield row

    def _scratchpad(self, table):
        try:
            return table.scratchpad()
        except Damaged as damage:
            self.findings.append(str(damage))
            return None

    def fec(self):
        log = Table(self._folder, LOG.file, LOG)
        log_version, log_rows = self._scratchpad(log), log.row_count()
        table, rows = self._rows(CONFIG, config_row, "fec")
        entries = [row for row in rows if not row["is_deleted"]]
        for row in rows:
            del row["is_deleted"]
        return {"entries": entries, "count": len(entries), "capacity": table.capacity,
                "deleted_rows": len(rows) - len(entries), "log_version": log_version,
                "log_rows": log_rows, "log_capacity": log.capacity}

    def log(self):
        table, rows = self._rows(LOG, log_row, "version")
        return {"rows": rows, "count": len(rows), "last_version": self._scratchpad(table)}

    def group_log(self):
        table, rows = self._rows(GROUP, group_row, "sequence")
        return {"rows": rows, "count": len(rows), "last_sequence": self._scratchpad(table)}

    def applied(self):
        _, rows = self._rows(APPLIED, applied_row, "table")
        return {"rows": rows, "count": len(rows)}


VIEWS = {"fec": Reader.fec, "log": Reader.log, "group-log": Reader.group_log, "applied": Reader.applied}


def print_text(view):
    rows = view.get("entries", view.get("rows"))
    for row in rows:
        print("  ".join(f"{name} {value}" for name, value in row.items()))
    print(", ".join(f"{name} {value}" for name, value in view.items() if value is not rows))


def self_test():
    """Test vectors of docs/format/: returns what does not hold."""
    generator, data = 2654435761, bytearray()
    while len(data) < 240:
        data.append(generator >> 56)
        generator = generator * 11400714785074694797 & MASK64
    checksums = {12: 0xA713DAF0DFBB77E7, 16: 0x981B17D36C7498C9, 24: 0xA3FE70BF9D3510EB,
                 48: 0x397DA259ECBA1F11, 80: 0xBCDEFBBB2C47C90A, 128: 0xFCFF24126754D861,
                 184: 0x26ACC2AABEBE7708, 195: 0xCD94217EE362EC3A, 240: 0x81C3C2B67F568CCF}
    wrong = [f"XXH3 of {n} bytes" for n, value in checksums.items() if xxh3(bytes(data[:n])) != value]
    digests = {LOG: 0xCE100A0328487472, CONFIG: 0x84992330A5F16EE1, GROUP: 0x5F7178852732AD7C,
               APPLIED: 0x4E4AF53102E61B88}
    wrong += [f"digest of {rows.type_name}" for rows, value in digests.items() if rows.digest() != value]
    names = {"": 0, "eth7": 0x4B00002000000000, "Ethernet3/1/2.100": 0x4000001008180065,
             "et-0/0/4:1": 0x49C0000404284000, "enp3s0f0np1": 0x52C0001004084000,
             "Vlan4094": 0x40803FFC00000000, "lo": 0x4AC0000000000000,
             "uplink-a": 0x9E7F8CF94D76F2C7, "eth01": 0x92E12B17A859CD9E,
             "Uplink-A": 0xF725BA15EDE6B355}
    wrong += [f"interface {name!r}" for name, value in names.items()
              if pack_name(name) != value or interface_name(value) != name]
    if seq_word(1, 1, 1) != 0x09B8000000000007:
        wrong.append("check of a seq")
    if link_value(0x66000002) != 2 or link_value(0x66000003) is not None:
        wrong.append("check of a link")
    if counter_value(0x6652659300000002) != 2 or counter_value(0) is not None:
        wrong.append("check of a counter")
    return wrong


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("what", nargs="*", metavar="|".join(VIEWS), help="tables to print; fec if none is named")
    parser.add_argument("--state", default="/dev/shm/loam-fec", metavar="DIR", help="state folder")
    parser.add_argument("--unit", default=0, type=int, help="unit (ASIC) number")
    parser.add_argument("--key", action="append", type=int, dest="keys", help="only the row of this key")
    parser.add_argument("--json", action="store_true", help="print JSON, one object per table")
    parser.add_argument("--self-test", action="store_true", help="try the test vectors of docs/format")
    options = parser.parse_args()
    unknown = [name for name in options.what if name not in VIEWS]
    if unknown:
        parser.error(f"what is {unknown[0]!r}? One of: {', '.join(VIEWS)}")
    return options


def main():
    options = parse_arguments()
    if options.self_test:
        wrong = self_test()
        for name in wrong:
            print(f"wrong: {name}", file=sys.stderr)
        return 1 if wrong else 0
    reader = Reader(options.state, options.unit, options.keys or [])
    try:
        views = [VIEWS[name](reader) for name in options.what or ["fec"]]
    except Refused as refusal:
        print(f"read-state: {refusal}", file=sys.stderr)
        return 3
    for view in views:
        if options.json:
            print(json.dumps(view, indent=2))
        else:
            print_text(view)
    for finding in reader.findings:
        print(f"read-state: damaged: {finding}", file=sys.stderr)
    return 1 if reader.findings else 0


if __name__ == "__main__":
    try:
        code = main()
        sys.stdout.flush()
    except BrokenPipeError:  # the reader of the output has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        code = 0
    sys.exit(code)
