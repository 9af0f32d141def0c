#include "Zev/PtrInterface.h"

#include "Pell/Publisher.h"

namespace Zev {

std::atomic<bool> PtrInterface::sThreadSafe = false;

bool threadSafePtrMode() { return PtrInterface::sThreadSafe.load(std::memory_order_relaxed); }

void threadSafePtrModeIs(bool on) {
  PtrInterface::sThreadSafe.store(on, std::memory_order_relaxed);
}

const Pell::Publisher* PtrInterface::notifieeList() const { return nullptr; }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    beingDestroyed_ = true;
    delete this;
  }
}

PtrInterface::~PtrInterface() {
  if (tracker_ != nullptr) {
    tracker_->released();
  }
}

}  // namespace Zev
