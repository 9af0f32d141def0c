// SPDX-License-Identifier: Apache-2.0

#include "agent/FecClient.h"

#include <utility>

namespace Agent {

namespace {

constexpr std::uint32_t kCapacity = LoamFec::FecTableConstants::kConfigCapacity;

}  // namespace

FecClient::FecClient(Zev::EventLoop& loop, const Pell::Ptr<LoamFec::FecTableSwTable>& table)
    : table_(table),
      resume_(loop, [this] { resume(); }),
      statusSubscriber_(
          [this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
            if (attributeId == Asic::OrderedSwTableStatus::kSuspendAttribute) {
              resume_.mark();
            }
          }) {
  table_->status()->publisher().subscriberAdd(statusSubscriber_);
}

FecClient::~FecClient() {
  *alive_ = false;
  table_->status()->publisher().subscriberRemove(statusSubscriber_);
}

bool FecClient::write(const Key& key, const Entry& entry, AnswerHandler handler) {
  const auto row = table_->row(key);
  const auto slot = slots_.find(key.fecId());
  const bool isCounted = slot != slots_.end() && slot->second.isNewKey;
  if (!row && !isCounted && table_->rows() + newKeys_ >= kCapacity) {
    return false;
  }
  const bool isBeingRemoved = slot != slots_.end() && slot->second.isBeingRemoved();
  const bool rowStays = row && !row->isDeleted() && !isBeingRemoved;
  Entry written = entry;
  written.key = key;
  accept(key, {written, std::move(handler)}, !rowStays && !isCounted);
  return true;
}

void FecClient::remove(const Key& key, AnswerHandler handler) {
  accept(key, {std::nullopt, std::move(handler)}, false);
}

void FecClient::accept(const Key& key, Request request, bool isNewKey) {
  Slot& slot = slots_[key.fecId()];
  if (isNewKey) {
    slot.isNewKey = true;
    ++newKeys_;
  }
  std::optional<Request> superseded = std::exchange(slot.waiting, std::move(request));
  if (superseded) {
    superseded->handler(Answer::superseded, {});
    return;
  }
  ++unanswered_;
  if (slot.inTable) {
    return;
  }
  if (table_->status()->suspend()) {
    heldBack_.push_back(key);
  } else {
    passOn(key);
  }
}

// The key has a request that waits and none in the table.
void FecClient::passOn(const Key& key) {
  Slot& slot = slots_.at(key.fecId());
  slot.inTable = std::exchange(slot.waiting, std::nullopt);
  const auto respond = [this, key, alive = alive_](
                           const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>& handle) {
    if (*alive) {
      answered(key, handle->entryState(), handle->logVersion());
    }
  };
  if (slot.inTable->entry) {
    table_->entryWriteWithResponseHandler(key, *slot.inTable->entry, nullptr, respond);
  } else {
    table_->entryRemoveWithResponseHandler(key, nullptr, respond);
  }
}

void FecClient::answered(const Key& key, Asic::EntryState state, Asic::LogVersion version) {
  Slot& slot = slots_.at(key.fecId());
  const AnswerHandler handler = std::move(slot.inTable->handler);
  slot.inTable.reset();
  --unanswered_;
  if (!slot.waiting) {
    newKeys_ -= slot.isNewKey ? 1U : 0U;
    slots_.erase(key.fecId());
  } else if (table_->status()->suspend()) {
    heldBack_.push_back(key);
  } else {
    passOn(key);
  }
  if (state == Asic::SwTableBase::success()) {
    handler(Answer::programmed, version);
  } else {
    handler(Answer::failed, {});
  }
}

void FecClient::resume() {
  for (std::uint32_t passed = 0; !heldBack_.empty() && !table_->status()->suspend(); ++passed) {
    if (passed == kResumedPerTurn) {
      resume_.mark();
      return;
    }
    const Key key = heldBack_.front();
    heldBack_.pop_front();
    passOn(key);
  }
}

std::optional<FecClient::Entry> FecClient::intended(const Key& key) const {
  if (const auto slot = slots_.find(key.fecId()); slot != slots_.end()) {
    return slot->second.newest().entry;
  }
  return table_->entryHas(key) ? std::optional<Entry>(table_->entryRead(key)) : std::nullopt;
}

void FecClient::forEachIntended(const std::function<void(const Entry&)>& visit) const {
  for (auto at = table_->entryIteratorConst(); at; ++at) {
    if (!slots_.contains(at->key.fecId())) {
      visit(*at);
    }
  }
  for (const auto& [fecId, slot] : slots_) {
    if (const auto& entry = slot.newest().entry) {
      visit(*entry);
    }
  }
}

void FecClient::forEachUnansweredWrite(const std::function<void(const Entry&)>& visit) const {
  for (const auto& [fecId, slot] : slots_) {
    for (const auto* request : {&slot.inTable, &slot.waiting}) {
      if (*request && (*request)->entry) {
        visit(*(*request)->entry);
      }
    }
  }
}

}  // namespace Agent
