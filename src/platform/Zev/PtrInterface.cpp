// SPDX-License-Identifier: Apache-2.0

#include "Zev/PtrInterface.h"

#include "Pell/Assert.h"
#include "Pell/Publisher.h"

namespace Zev {

constinit std::atomic<bool> Detail::threadSafeCounts = false;

void threadSafePtrModeIs(bool on) { Detail::threadSafeCounts.store(on, std::memory_order_relaxed); }

const Pell::Publisher* PtrInterface::notifieeList() const { return nullptr; }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    notificationActive_ = false;
    beingDestroyed_ = true;
    delete this;
  }
}

PtrInterface::~PtrInterface() {
  PELL_ASSERT(!notificationActive_, "!notificationActive_");
  if (tracker_ != nullptr) {
    tracker_->released();
  }
}

}  // namespace Zev
