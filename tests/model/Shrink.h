// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace fec_model {

// Makes a failing sequence shorter and simpler while it still fails: drops runs of items, long runs
// first, then tries simpler forms of each item, until neither helps. `fails` runs a sequence;
// `simpler` gives the forms of one item that ask for less, each of them strictly less than the
// item, so that this ends. At most maxRuns runs.
template <typename Item, typename Fails, typename Simpler>
class Shrinker {
 public:
  Shrinker(std::vector<Item> items, Fails fails, Simpler simpler, std::size_t maxRuns)
      : items_(std::move(items)),
        fails_(std::move(fails)),
        simpler_(std::move(simpler)),
        runsLeft_(maxRuns) {}

  std::vector<Item> shrink() {
    bool shrunk = true;
    while (shrunk) {
      shrunk = dropRuns();
      shrunk = simplifyItems() || shrunk;
    }
    return items_;
  }

 private:
  bool dropRuns() {
    bool dropped = false;
    for (std::size_t length = std::max<std::size_t>(items_.size() / 2, 1); length > 0;
         length /= 2) {
      for (std::size_t at = 0; at < items_.size();) {
        std::vector<Item> without = items_;
        const auto from = without.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t end = std::min(at + length, items_.size());
        without.erase(from, without.begin() + static_cast<std::ptrdiff_t>(end));
        if (take(std::move(without))) {
          dropped = true;
        } else {
          at += length;
        }
      }
    }
    return dropped;
  }

  bool simplifyItems() {
    bool simplified = false;
    for (std::size_t at = 0; at < items_.size(); ++at) {
      while (simplify(at)) {
        simplified = true;
      }
    }
    return simplified;
  }

  bool simplify(std::size_t at) {
    for (const Item& form : simpler_(items_[at])) {
      std::vector<Item> changed = items_;
      changed[at] = form;
      if (take(std::move(changed))) {
        return true;
      }
    }
    return false;
  }

  bool take(std::vector<Item> candidate) {
    if (runsLeft_ == 0 || !fails_(candidate)) {
      runsLeft_ -= runsLeft_ == 0 ? 0 : 1;
      return false;
    }
    --runsLeft_;
    items_ = std::move(candidate);
    return true;
  }

  std::vector<Item> items_;
  Fails fails_;
  Simpler simpler_;
  std::size_t runsLeft_;
};

}  // namespace fec_model
