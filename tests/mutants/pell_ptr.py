# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Pell/include/Pell/Ptr.h"
TESTS = ["PellTest", "ZevTest"]

MUTANTS = [
    ("copied pointer holds nothing", "  Ptr(const Ptr& other) noexcept : object_(other.object_) { hold(); }",
     "  Ptr(const Ptr& other) noexcept : object_(other.object_) {}"),
    ("pointer that goes keeps its object", "  ~Ptr() { drop(object_); }", "  ~Ptr() {}"),
    ("moved-from pointer keeps its object",
     "  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}",
     "  Ptr(Ptr&& other) noexcept : object_(other.object_) {}"),
    ("adopted pointer takes a reference more", "    result.object_ = object;\n", "    result.object_ = object;\n    result.hold();\n"),
    ("null pointer is dereferenced", '    PELL_ASSERT(object_ != nullptr, "object_ != NULL");\n', ""),
    ("down-cast gives whatever it is asked for",
     "  return Ptr<To>(dynamic_cast<To*>(object));\n", "  return Ptr<To>(static_cast<To*>(object));\n"),
    ("down-cast to the very class fails",
     "    return Ptr<To>(static_cast<To*>(object));\n", "    return Ptr<To>();\n"),
    ("object of one thread ends one reference early", "    if (--references_ == 0) {\n", "    if (--references_ <= 1) {\n"),
]
