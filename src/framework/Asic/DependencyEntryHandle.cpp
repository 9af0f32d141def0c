// SPDX-License-Identifier: Apache-2.0

#include "Asic/DependencyEntryHandle.h"

#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "DependencyEntryHandle";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

void DependencyEntryHandle::entryStateSet(EntryState state) {
  if (entryState_ != state) {
    ZEV_TRACE(trace, 8, kClass, "tableVersion: {} entryState: {} was: {}", entryTableVersion(),
              state, entryState_);
    entryState_ = state;
    publisher().attributeChange(kEntryStateAttribute);
  }
}

}  // namespace Asic
