# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Pell/include/Pell/RQueue.h"
TESTS = ["PellTest"]

MUTANTS = [
    ("numbers are at or after one too far", "return n - m < 0x7FFFFFFFU;", "return n - m <= 0x7FFFFFFFU;"),
    ("numbers are compared without their wrap", "return n - m < 0x7FFFFFFFU;", "return n >= m;"),
    ("array grows to the count, not above it", "std::bit_ceil(count + 1)", "std::bit_ceil(count)"),
    ("largest array has a bound one higher",
     "    return count >= kLargestCapacity\n", "    return count > 2 * kLargestCapacity\n",
     {"lives": "what is clamped behind it is bounded by the same capacity"}),
    ("placeholder forgets its number",
     "Array::make(capacityFor(0), tail_->base)", "Array::make(capacityFor(0), kFirstSequence)"),
    ("new array's numbers overlap the last one's",
     "Array::make(capacityFor(count_), tail_->base + tail_->writeIndex())",
     "Array::make(capacityFor(count_), tail_->base)"),
    ("drained queue starts its numbers again",
     "tail_ = Array::make(0, head->base + head->writeIndex());", "tail_ = Array::make(0, kFirstSequence);"),
    ("drained array stays linked", "    head->link = nullptr;\n", ""),
    ("taken elements are still found",
     "const Sequence first = array->base + array->readIndex();", "const Sequence first = array->base;"),
    ("arrays behind the tail are not searched",
     "    for (Array* array = tail_->link; array != tail_; array = array->link) {\n",
     "    for (Array* array = tail_; array != tail_; array = array->link) {\n"),
]
