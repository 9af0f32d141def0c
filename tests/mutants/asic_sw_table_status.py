# SPDX-License-Identifier: Apache-2.0

FILE = "src/framework/Asic/OrderedSwTableStatus.cpp"
TESTS = ["AsicTest"]

MUTANTS = [
    ("pending flag is published again",
     "  if (pendingHwWrites_ != pending) {\n", "  {\n"),
    ("pending flag is published before it stands",
     """    pendingHwWrites_ = pending;
    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });
""",
     """    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });
    pendingHwWrites_ = pending;
"""),
    ("write that is asked for is an event of the first alone",
     """    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });
  }
  if (pending) {
    first.from([&] { publisher().attributeChange(kHwWriteAskedAttribute); });
  }
""",
     """    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });
    if (pending) {
      first.from([&] { publisher().attributeChange(kHwWriteAskedAttribute); });
    }
  }
"""),
    ("flag that falls asks for a write",
     "  if (pending) {\n", "  {\n"),
    ("observer of the flag keeps the event back",
     "    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });\n",
     "    publisher().attributeChange(kPendingHwWritesAttribute);\n"),
    ("status passes no exception on", "  first.rethrow();\n", ""),
    ("status is not held while it publishes",
     "  const Pell::Ptr<OrderedSwTableStatus> self(this);\n", ""),
    ("suspend flag is published again", "  if (suspend_ != suspend) {\n", "  {\n"),
    ("suspend flag is published before it stands",
     "    suspend_ = suspend;\n    publisher().attributeChange(kSuspendAttribute);\n",
     "    publisher().attributeChange(kSuspendAttribute);\n    suspend_ = suspend;\n"),
]
