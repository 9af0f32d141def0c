// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "Zev/WorkMeter.h"

namespace Hardware {

// The number of rows that one step of the hardware may cost: rows that the step touches, and rows
// that the clean-up after its report will touch.
//
// Kind: object, used within one step.
class StepBudget {
 public:
  static constexpr std::uint64_t kUnlimited = UINT64_MAX;

  explicit StepBudget(std::uint64_t rows) : start_(Zev::WorkMeter::total()), rows_(rows) {}
  StepBudget(const StepBudget&) = delete;
  StepBudget& operator=(const StepBudget&) = delete;

  // Adds work that the meter does not count: rows of the hardware, and rows that the clean-up will
  // touch.
  void charge(std::uint64_t rows) { charged_ += rows; }
  bool spent() const { return left() == 0; }
  std::uint64_t left() const {
    const std::uint64_t used = Zev::WorkMeter::total() - start_ + charged_;
    return used < rows_ ? rows_ - used : 0;
  }

 private:
  std::uint64_t start_;
  std::uint64_t rows_;
  std::uint64_t charged_ = 0;
};

}  // namespace Hardware
