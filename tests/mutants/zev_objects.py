# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/PtrInterface.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("object that ends does not know it", "    beingDestroyed_ = true;\n", ""),
    ("object without references lives on", "    delete this;\n", ""),
    ("object ends whatever it is told",
     "  if (zero) {\n    beingDestroyed_ = true;\n", "  {\n    (void)zero;\n    beingDestroyed_ = true;\n"),
    ("end of an object is not counted", "    tracker_->released();\n", ""),
]
