// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "Asic/CanonicalTableName.h"
#include "Asic/OrderedSwTableStatus.h"
#include "Asic/SwTableBase.h"

namespace Asic {

// Software table whose operations are ordered against those of the other tables of its group by
// the versions of its log.
class OrderedSwTable : public SwTableBase {
 public:
  // Handle of one logged operation.
  //
  // Layout: the table's id stands in the handle, so that a handle which outlives its table can
  // still tell its table version.
  class EntryHandle : public SwTableBase::EntryHandle {
   public:
    using ResponseHandler = std::function<void(Pell::Ptr<EntryHandle const> const&)>;

    TableVersion entryTableVersion() const override { return {tableId_, logVersion_}; }

    // Whether its table gave the operation this version; false for a handle of a kind that has
    // none.
    virtual bool isOfVersion(EntryVersion const& /*version*/) const { return false; }

    // 0 until the operation is logged.
    LogVersion logVersion() const { return logVersion_; }
    void logVersionIs(LogVersion version) { logVersion_ = version; }

    // Called with this handle when the operation is applied or has failed; empty: there is none.
    const ResponseHandler& responseHandler() const { return responseHandler_; }
    void responseHandlerIs(ResponseHandler handler) { responseHandler_ = std::move(handler); }

   protected:
    explicit EntryHandle(SwTableId tableId) : tableId_(tableId) {}

   private:
    SwTableId tableId_;
    LogVersion logVersion_;
    ResponseHandler responseHandler_;
  };

  // The hardware side reports that it has applied the table's log up to the version. A report may
  // repeat an earlier one. An exception of a handler may leave the call; the table's own work for
  // the report is done by then.
  virtual void tableStatusVersion(LogVersion version) = 0;

  const Pell::Ptr<CanonicalTableName const>& tableName() const { return tableName_; }
  SwTableId tableId() const { return tableId_; }
  UnitId unitId() const { return unitId_; }
  // Shared by the tables of all units.
  const Pell::Ptr<OrderedSwTableStatus>& status() const { return status_; }

 protected:
  OrderedSwTable(Pell::Ptr<CanonicalTableName const> tableName, SwTableId tableId, UnitId unitId,
                 Pell::Ptr<OrderedSwTableStatus> status);

 private:
  Pell::Ptr<CanonicalTableName const> tableName_;
  SwTableId tableId_;
  UnitId unitId_;
  Pell::Ptr<OrderedSwTableStatus> status_;
};

}  // namespace Asic
