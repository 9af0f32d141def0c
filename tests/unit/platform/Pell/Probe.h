// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "Zev/PtrInterface.h"

// Counted object that tells when it ends.
class Probe : public Zev::Typed<Probe> {
 public:
  static constexpr std::string_view kTypeName = "Probe";

  explicit Probe(int id = 0, std::function<void()> onEnd = {})
      : id_(id), onEnd_(std::move(onEnd)) {}
  ~Probe() override {
    if (onEnd_) {
      onEnd_();
    }
  }
  int id() const { return id_; }

  Pell::Ptr<Probe> next;

 private:
  int id_;
  std::function<void()> onEnd_;
};

class SpecialProbe : public Probe {
 public:
  static constexpr std::string_view kTypeName = "SpecialProbe";
  using Probe::Probe;
};
