// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

namespace Zev {

namespace Detail {
extern std::atomic<bool> threadSafeCounts;
}

// Whether counts are updated atomically. Off at the start. Switch it while only one thread uses the
// platform's objects.
inline bool threadSafePtrMode() { return Detail::threadSafeCounts.load(std::memory_order_relaxed); }
void threadSafePtrModeIs(bool on);

// A number that is counted up and down: plain arithmetic, or in thread-safe-pointer mode atomic.
//
// Kind: value of an object; not copied.
// Threads: one, in thread-safe-pointer mode any number. value() is a momentary value there.
template <typename Number>
class Count {
 public:
  constexpr explicit Count(Number start) noexcept : value_(start) {}

  Number value() const noexcept { return value_.load(std::memory_order_relaxed); }

  // Both return the number afterwards.
  [[gnu::always_inline]] Number raise() noexcept {
    if (threadSafePtrMode()) [[unlikely]] {
      return value_.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    const Number raised = value() + 1;
    value_.store(raised, std::memory_order_relaxed);
    return raised;
  }
  // A thread that counts down to a number sees everything that was done before the number was
  // reached.
  [[gnu::always_inline]] Number lower() noexcept {
    if (threadSafePtrMode()) [[unlikely]] {
      return value_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    const Number lowered = value() - 1;
    value_.store(lowered, std::memory_order_relaxed);
    return lowered;
  }

 private:
  std::atomic<Number> value_;
};

}  // namespace Zev
