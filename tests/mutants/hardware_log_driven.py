# SPDX-License-Identifier: Apache-2.0

FILE = "hardware/LogDrivenHardware.cpp"
TESTS = ["HardwareTest"]

MUTANTS = [
    ("a new comparison keeps what the last one had left", """  resynchroniser_ = nullptr;
  takeBackWhatIsGiven();
""", """  resynchroniser_ = nullptr;
"""),
    ("what is refused counts as applied",
     "const Asic::LogVersion taken = refused ? Asic::LogVersion(refused->value() - 1) : given_;",
     "const Asic::LogVersion taken = refused ? *refused : given_;"),
    ("the cost of a table's deletion is asked before all has arrived",
     "if ((row->operation() & LogRow::kTableDeleted) != 0 && !flush()) {",
     "if (false) {"),
    ("other tables wait for what has been given and not taken",
     "(!needsAreApplied(waiting.front(), appliedVersion(kFecTable)) && !flush())) {",
     "!needsAreApplied(waiting.front(), appliedVersion(kFecTable))) {"),
    ("any operation that waits cuts the batch short",
     "if (!needsAreApplied(waiting.front(), given_) ||\n        (!needsAreApplied",
     "if ((!needsAreApplied"),
    ("nothing is taken at the end of a step", """  if (!resynchronising() && !asic_->refused()) {
    flush();
  }
""", ""),
    ("a step after a refusal does not try again", "  asic_->tryAgain();\n  const bool isSpent", "  const bool isSpent"),
    ("a refusal asks for another turn at once", "return isSpent && !asic_->refused();",
     "return isSpent || asic_->refused();"),
]
