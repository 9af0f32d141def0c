// SPDX-License-Identifier: Apache-2.0

#include "Asic/OrderedSwTableStatus.h"

#include "Zev/FirstException.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "OrderedSwTableStatus";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

Zev::TypeRecord OrderedSwTableStatus::typeRecord() {
  return {kTypeName,
          {{"pendingHwWrites", kPendingHwWritesAttribute},
           {"suspend", kSuspendAttribute},
           {"hwWriteAsked", kHwWriteAskedAttribute}}};
}

void OrderedSwTableStatus::pendingHwWritesIs(bool pending) {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} pending: {}", tableId_, pending);
  const Pell::Ptr<OrderedSwTableStatus> self(this);
  Zev::FirstException first;
  if (pendingHwWrites_ != pending) {
    pendingHwWrites_ = pending;
    first.from([&] { publisher().attributeChange(kPendingHwWritesAttribute); });
  }
  if (pending) {
    first.from([&] { publisher().attributeChange(kHwWriteAskedAttribute); });
  }
  first.rethrow();
}

void OrderedSwTableStatus::suspendIs(bool suspend) {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} suspend: {}", tableId_, suspend);
  if (suspend_ != suspend) {
    suspend_ = suspend;
    publisher().attributeChange(kSuspendAttribute);
  }
}

}  // namespace Asic
