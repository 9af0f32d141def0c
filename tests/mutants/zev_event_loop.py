# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/EventLoop.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("two marks make two turns",
     "  if (state_->marked) {\n    return;\n  }\n", ""),
    ("turn runs though its owner is gone",
     "    if (state->alive) {\n      state->work();\n    }\n", "    state->work();\n"),
    ("mark inside a turn is lost",
     "    state->marked = false;\n    if (state->alive) {\n      state->work();\n    }\n",
     "    if (state->alive) {\n      state->work();\n    }\n    state->marked = false;\n"),
    ("mark runs its work at once",
     "  loop_.post([state = state_] {\n", "  if (state_->alive) {\n    state_->work();\n  }\n  loop_.post([state = state_] {\n"),
    ("turn that could not be posted is never asked for again",
     "  loop_.post([state = state_] {\n", "  state_->marked = true;\n  loop_.post([state = state_] {\n"),
]
