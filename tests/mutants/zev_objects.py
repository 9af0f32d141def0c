# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/PtrInterface.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("object that ends does not know it", "    beingDestroyed_ = true;\n", ""),
    ("object without references lives on", "    delete this;\n", ""),
    ("object ends whatever it is told",
     "  if (zero) {\n    notificationActive_", "  {\n    (void)zero;\n    notificationActive_"),
    ("object that ends takes notifications", "    notificationActive_ = false;\n", ""),
    ("object may end with notifications on",
     "  PELL_ASSERT(!notificationActive_, \"!notificationActive_\");\n", ""),
    ("end of an object is not counted", "    tracker_->released();\n", ""),
]
