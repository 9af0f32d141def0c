// SPDX-License-Identifier: Apache-2.0

#include "records/FecTableDataModelSwTableBase.h"

#include <utility>

namespace LoamFec {

FecTableDataModelEntryIteratorConst::FecTableDataModelEntryIteratorConst(
    Pell::Ptr<FecTableDataModelSwTableIteratorState> state)
    : state_(std::move(state)) {
  state_->maybeUpdateCurrentEntry();
}

FecTableDataModelEntryIteratorConst& FecTableDataModelEntryIteratorConst::operator++() {
  state_->maybeUpdateCurrentEntry();
  return *this;
}

FecTableDataModelSwTableBase::EntryHandle::EntryHandle(Asic::EntryVersion const& version,
                                                       Key const& key,
                                                       FecTableDataModelSwTableBase* table)
    : Asic::OrderedSwTable::EntryHandle(table == nullptr ? Asic::SwTableId() : table->tableId()),
      version_(version),
      key_(key),
      table_(table) {}

}  // namespace LoamFec
