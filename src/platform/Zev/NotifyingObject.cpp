// SPDX-License-Identifier: Apache-2.0

#include "Zev/NotifyingObject.h"

#include <utility>

namespace Zev {

Reactor::Reactor(const NotifyingObject& owner, Callback callback)
    : Subscriber([&owner, react = std::move(callback)](Pell::Publisher* publisher,
                                                       Subscriber* subscriber, short attributeId,
                                                       const void* element, const void* oldValue) {
        if (owner.reactsToChanges()) {
          react(publisher, subscriber, attributeId, element, oldValue);
        }
      }) {}

}  // namespace Zev
