# SPDX-License-Identifier: Apache-2.0
"""gdb pretty printers for the objects of loamfec.

    gdb -x share/gdb/loamfec-gdb.py fecd core
    (gdb) source share/gdb/loamfec-gdb.py

They print counted pointers, hash maps, the handles of requests and of interfaces, identifiers, versions
and the rows of the shared tables, each in the words of the traces. Nothing is called in the program, so
they work on a core file. `print /r` prints the members as they are.
"""

import gdb
import gdb.printing

# Identifiers of interfaces: docs/format/interface-identifiers.md.

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


# What gdb knows of a value.


def plain(type_):
    return type_.strip_typedefs().unqualified()


def is_a(type_, name):
    """Whether the class is the named one or has it among its bases."""
    type_ = plain(type_)
    if type_.name == name:
        return True
    return type_.code == gdb.TYPE_CODE_STRUCT and any(
        field.is_base_class and is_a(field.type, name) for field in type_.fields())


def as_base(value, name):
    """The part of the object that is the named base."""
    if plain(value.type).name == name:
        return value
    for field in plain(value.type).fields():
        if field.is_base_class and is_a(field.type, name):
            return as_base(value[field], name)
    raise gdb.error(f"{value.type} has no base {name}")


def most_derived(value):
    """The whole object, where its class can be told."""
    dynamic = value.dynamic_type
    return value if dynamic == value.type else value.cast(dynamic)


def told(look):
    """What the look finds; None where the debug information does not describe a class that it needs.

    That is so for a class of a library without debug information: gdb knows no more than its name.
    """
    try:
        return look()
    except gdb.MemoryError:
        raise
    except gdb.error:
        return None


def words(value, type_):
    """The value's memory, seen as an array of that type without an end."""
    return value.address.cast(type_.pointer())


def count(value):
    """A count that may be atomic."""
    return int(words(value, gdb.lookup_type("unsigned int")).dereference())


# Values, as their valueToStrep() prints them.


def destination(value):
    return f"{int(value['first']):#x}/{int(value['second'])}/{int(value['third'])}"


def entry_version(value):
    return f"{int(value['major_'])}.{int(value['minor_'])}"


def table_id(number):
    return f"{number >> 24:02x}:{number >> 16 & 0xFF:02x}:{number & 0xFFFF:04x}"


def table_version(value):
    return f"{table_id(int(value['tableId_']['value_']))}@{int(value['logVersion_']['value_'])}"


def log_entry(value):
    return (f"key:{int(value['key']['fecId_'])} flagA:{int(value['flagA'])}"
            f" clientDest:{destination(value['clientDest'])} opaqueA:{int(value['opaqueA'])}"
            f" opaqueB:{int(value['opaqueB'])} flagB:{int(value['flagB'])}"
            f" resolvedDest:{destination(value['resolvedDest'])}")


def entry(value):
    return f"{log_entry(value)} intfId:{interface_name(int(value['intfId']['value_']))}"


# Rows of the shared tables.

OPERATIONS = {0: "entry written", 1: "entry deleted", 2: "table deleted"}
CONTINUED, CONTINUATION = 1 << 31, 1 << 30


def log_row(value):
    operation = int(value["operation_"])
    return (f"version:{int(value['version_'])} operation:{operation} ({OPERATIONS.get(operation, 'unknown')})"
            f" unitId:{int(value['unitId_'])} {log_entry(value['logEntry_'])}")


def config_row(value):
    return (f"version:{int(value['version_'])} isDeleted:{int(value['isDeleted_'])}"
            f" intfId:{interface_name(int(value['rsrcKeys_']))} {log_entry(value['logEntry_'])}")


def group_row(value):
    marked = int(value["countAndMarks_"])
    needed_count = marked & ~(CONTINUED | CONTINUATION)
    elements = value["needed_"]["_M_elems"]
    if needed_count > elements.type.strip_typedefs().range()[1] + 1:
        needed = f"implausible count {needed_count}"
    else:
        needed = ", ".join(f"{table_id(int(elements[at]['tableId']))}@{int(elements[at]['version'])}"
                           for at in range(needed_count))
    return (f"sequence:{int(value['sequence_'])}"
            f" {table_id(int(value['tableId_']))}@{int(value['version_'])} needs {{{needed}}}"
            f"{' continuation' if marked & CONTINUATION else ''}{' continued' if marked & CONTINUED else ''}")


def applied_row(value):
    return f"{table_id(int(value['tableId_']))}@{int(value['version_'])} applied"


# Handles.

STATES = {0: "not resolved", 1: "hardware write pending", 2: "dependency failed", 3: "done", 4: "commit failed",
          5: "resource failed"}


def state(value):
    number = int(value.cast(gdb.lookup_type("unsigned char")))
    return f"state {number} ({STATES.get(number, 'unknown')})"


def entry_handle(value):
    """As much as the class of the handle tells."""
    parts = []
    if is_a(value.type, FEC_HANDLE):
        fec = as_base(value, FEC_HANDLE)
        parts += [f"key {int(fec['key_']['fecId_'])}", f"v{entry_version(fec['version_'])}"]
    parts.append(state(as_base(value, DEPENDENCY_HANDLE)["entryState_"]))
    if is_a(value.type, ORDERED_HANDLE):
        ordered = as_base(value, ORDERED_HANDLE)
        version = int(ordered["logVersion_"]["value_"])
        table = table_id(int(ordered["tableId_"]["value_"]))
        parts.append(f"logged as {table}@{version}" if version else f"not logged, table {table}")
    return ", ".join(parts)


def resource_handle(value):
    handle = as_base(value, RESOURCE_HANDLE)
    return (f"interface {interface_name(int(handle['key_']['intfId_']['value_']))},"
            f" update {int(handle['updateNumber_'])}, {state(handle['entryState_'])},"
            f" destination {destination(handle['destId_'])}")


def request(value):
    """A request on its way: what is to be written or removed, and its handle."""
    handle = value["entryHandle_"]["object_"]
    told = "no handle" if int(handle) == 0 else entry_handle(most_derived(handle.dereference()))
    return f"{entry(value['entry_'])}; {told}"


DEPENDENCY_HANDLE = "Asic::DependencyEntryHandle"
ORDERED_HANDLE = "Asic::OrderedSwTable::EntryHandle"
FEC_HANDLE = "LoamFec::FecTableDataModelSwTableBase::EntryHandle"
RESOURCE_HANDLE = "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ResourceHandle"

# By the name of the class itself.
TEXTS = {
    "Wirex::IntfId": lambda value: interface_name(int(value["value_"])),
    "LoamAdjLib::IntfIdToDestIdResourceTableEntryKey":
        lambda value: interface_name(int(value["intfId_"]["value_"])),
    "LoamAdjLib::DestId": destination,
    "LoamFec::FecTableDataModelEntryKey": lambda value: str(int(value["fecId_"])),
    "LoamFec::FecDestination": destination,
    "LoamFec::FecTableDataModelLogEntry": log_entry,
    "LoamFec::FecTableDataModelEntry": entry,
    "LoamFec::FecTableEntryWrapper": request,
    "LoamFec::FecTableDataModelLogGlintEntry": log_row,
    "LoamFec::FecTableDataModelConfigGlintEntry": config_row,
    "Asic::GroupLogRow": group_row,
    "Asic::GroupVersionRow": applied_row,
    "Asic::LogVersion": lambda value: str(int(value["value_"])),
    "Asic::MajorVersion": lambda value: str(int(value["value_"])),
    "Asic::EntryVersion": entry_version,
    "Asic::SwTableId": lambda value: table_id(int(value["value_"])),
    "Asic::TableVersion": table_version,
    "Asic::UnitId": lambda value: str(int(value["value_"])),
}
# By the name of a base as well.
HANDLE_TEXTS = {DEPENDENCY_HANDLE: entry_handle, RESOURCE_HANDLE: resource_handle}


def text_of(value):
    """What is printed of the value; None for a class that is printed by its members."""
    type_ = plain(value.type)
    if type_.code != gdb.TYPE_CODE_STRUCT or type_.name is None:
        return None
    if type_.name in TEXTS:
        return TEXTS[type_.name](value)
    if type_.name.startswith(("std::", "boost::", "fmt::")):
        return None
    for base, text in HANDLE_TEXTS.items():
        if is_a(type_, base):
            return text(value)
    return None


class TextPrinter:
    def __init__(self, text):
        self._text = text

    def to_string(self):
        return self._text


class PtrPrinter:
    """A counted pointer: what it points at, and how many hold that."""

    def __init__(self, value):
        self._object = value["object_"]

    def to_string(self):
        if int(self._object) == 0:
            return "null"
        held = most_derived(self._object.dereference())
        what = f"{plain(held.type).name} at {int(self._object):#x}"
        holders = told(lambda: count(held["references_"]))
        text = told(lambda: text_of(held))
        if holders is not None:
            what += f", held {holders} times"
        return what if text is None else f"{what}: {text}"


class HashMapPrinter:
    """A hash map: its elements, in the order in which a walk meets them."""

    FIRST_CHUNK = 8  # slots of the first chunk; each next one has twice as many

    def __init__(self, value):
        slots = value["slots_"]
        self._size = int(slots["size_"])
        chunks = slots["chunks_"]
        slot_type = chunks.type.strip_typedefs().template_argument(0).template_argument(0).target()
        # A unique_ptr is one word: the address of its array.
        self._chunks = chunks["_M_impl"]["_M_start"].cast(slot_type.pointer().pointer())

    def _elements(self):
        chunk, at = 0, 0
        for _ in range(self._size):
            if at == self.FIRST_CHUNK << chunk:
                chunk, at = chunk + 1, 0
            slot = self._chunks[chunk][at]["_M_payload"]
            if slot["_M_engaged"]:
                yield slot["_M_payload"]["_M_value"]
            at += 1

    def to_string(self):
        return f"hash map of {sum(1 for _ in self._elements())}"

    def display_hint(self):
        return "map"

    def children(self):
        for number, element in enumerate(self._elements()):
            yield f"{number}.key", element["key"]
            yield f"{number}.value", element["value"]


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("loamfec")

    def __call__(self, value):
        name = plain(value.type).name or ""
        if name.startswith("Pell::Ptr<"):
            return PtrPrinter(value)
        if name.startswith("Pell::HashMap<"):
            return HashMapPrinter(value)
        text = told(lambda: text_of(value))
        return None if text is None else TextPrinter(text)


gdb.printing.register_pretty_printer(None, Printers(), replace=True)
