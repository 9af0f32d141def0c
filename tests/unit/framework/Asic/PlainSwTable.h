// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <vector>

#include "Asic/OrderedSwTable.h"

namespace asic_test {

// Software table that writes down the reports it gets.
class PlainSwTable : public Zev::Typed<PlainSwTable, Asic::OrderedSwTable> {
 public:
  static constexpr const char* kTypeName = "PlainSwTable";

  PlainSwTable(Asic::SwTableId tableId, Asic::UnitId unitId,
               const Pell::Ptr<Asic::OrderedSwTableStatus>& status = nullptr)
      : Typed(nullptr, tableId, unitId, status) {}
  void tableStatusVersion(Asic::LogVersion version) override {
    reports.push_back(version);
    if (onReport) {
      onReport();
    }
  }

  std::vector<Asic::LogVersion> reports;
  std::function<void()> onReport;
};

}  // namespace asic_test
