// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "Zev/WorkMeter.h"

namespace Hardware {

// What one step of the hardware may do, in rows: those that it touches itself, and those that will
// be touched on its account when it has reported.
//
// Kind: object, used within one step.
class StepBudget {
 public:
  static constexpr std::uint64_t kUnlimited = UINT64_MAX;

  explicit StepBudget(std::uint64_t rows) : start_(Zev::WorkMeter::total()), rows_(rows) {}
  StepBudget(const StepBudget&) = delete;
  StepBudget& operator=(const StepBudget&) = delete;

  // Work that no meter counts here: rows of the hardware, and rows that a report will have cleaned
  // up.
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
