#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Zev {

// Counts the live objects of one type, so that a test can show that none is left.
//
// Kind: object with static lifetime, one a type, made on first use through trackerOf<T>().
// Threads: objects may be made and released on any thread; a type is first used on the loop's.
class AllocationTracker {
 public:
  explicit AllocationTracker(std::string_view typeName);
  AllocationTracker(const AllocationTracker&) = delete;
  AllocationTracker& operator=(const AllocationTracker&) = delete;

  void allocated() {
    live_.fetch_add(1, std::memory_order_relaxed);
    total_.fetch_add(1, std::memory_order_relaxed);
  }
  void released() { live_.fetch_sub(1, std::memory_order_relaxed); }

  std::string_view typeName() const { return typeName_; }
  // Objects that exist now.
  std::int64_t live() const { return live_.load(std::memory_order_relaxed); }
  // Objects ever made.
  std::int64_t total() const { return total_.load(std::memory_order_relaxed); }

  // Every tracker that exists, in the order in which the types were first used.
  static const std::vector<const AllocationTracker*>& all();
  // Live objects of all types together.
  static std::int64_t liveOfAllTypes();

 private:
  std::string_view typeName_;
  std::atomic<std::int64_t> live_ = 0;
  std::atomic<std::int64_t> total_ = 0;
};

}  // namespace Zev
