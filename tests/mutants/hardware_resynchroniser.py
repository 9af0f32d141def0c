# SPDX-License-Identifier: Apache-2.0

FILE = "hardware/Resynchroniser.cpp"
TESTS = ["HardwareTest"]

MUTANTS = [
    ("a full ASIC is given more at once", "if (sighting.held < asic_->capacity()) {", "if (true) {"),
    ("a full ASIC counts one entry too many", "if (sighting.held < asic_->capacity()) {",
     "if (sighting.held <= asic_->capacity()) {"),
    ("what a full ASIC had no room for is forgotten", "additions_.push_back({unitId, row.logEntry(), row.version()});", ""),
    ("a refused comparison asks twice", "return !asic_->refused() && asic_->flush() && isDone;",
     "return asic_->flush() && isDone;"),
    ("a deleted row stays in the hardware", "      asic_->remove(unitId, row.key(), row.version());\n", ""),
    ("what nobody has committed is taken off though damage hides rows",
     "if (!sighting.sawAll) {\n      continue;\n    }\n    for (;;) {", "for (;;) {"),
]
