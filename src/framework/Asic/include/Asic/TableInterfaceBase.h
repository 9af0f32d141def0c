// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/OrderedTableInterface.h"

namespace Asic {

// Base of the per-process interface of one table.
class TableInterfaceBase : public Zev::PtrInterface {
 public:
  const Pell::Ptr<OrderedTableInterface>& orderedTableIntf() const { return orderedTableIntf_; }

 protected:
  explicit TableInterfaceBase(Pell::Ptr<OrderedTableInterface> const& orderedTableIntf);
  ~TableInterfaceBase() override;

 private:
  Pell::Ptr<OrderedTableInterface> orderedTableIntf_;
};

}  // namespace Asic
