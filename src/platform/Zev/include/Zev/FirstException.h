// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <exception>
#include <utility>

namespace Zev {

// Runs steps that must all be taken, even if one of them throws:
//
//   Zev::FirstException first;
//   for (const auto& table : tables) {
//     first.from([&] { table->tableStatusVersion(version); });
//   }
//   first.rethrow();
//
// Kind: value type, used within one call. Later exceptions are dropped.
class FirstException {
 public:
  // Takes the step and keeps what it throws. False when it threw.
  template <typename Step>
  bool from(Step&& step) {
    try {
      std::forward<Step>(step)();
      return true;
    } catch (...) {
      if (!first_) {
        first_ = std::current_exception();
      }
      return false;
    }
  }

  // Passes the first exception on; returns when there was none.
  void rethrow() const {
    if (first_) {
      std::rethrow_exception(first_);
    }
  }

 private:
  std::exception_ptr first_;
};

}  // namespace Zev
