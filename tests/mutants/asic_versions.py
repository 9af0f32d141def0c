# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/Versions.cpp"
TESTS = ["AsicTest"]

MUTANTS = [
    ("entry version prints without its last 16 bits",
     'fmt::format("{}.{}", version.major(), version.minor())', 'fmt::format("{}", version.major())'),
    ("table id prints its agent as one digit",
     '"{:02x}:{:02x}:{:04x}", id.agentId()', '"{:x}:{:02x}:{:04x}", id.agentId()'),
    ("table id prints its table in two digits",
     '"{:02x}:{:02x}:{:04x}", id.agentId()', '"{:02x}:{:02x}:{:02x}", id.agentId()'),
    ("table id prints its group before its agent",
     "id.agentId(), id.groupId(), id.tblId()", "id.groupId(), id.agentId(), id.tblId()"),
]
