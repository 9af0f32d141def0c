// SPDX-License-Identifier: Apache-2.0

// An iteration owes every entry that it can see from its beginning to its end: a pending write, or
// a committed entry that nothing pending shadows. It yields pending writes first and committed
// entries after them, each once; an entry that came, left or came back meanwhile may or may not be
// yielded.

#include <iterator>

#include <fmt/format.h>

#include "Model.h"

namespace fec_model {

WalkExpectation::WalkExpectation(const Model& model, Unit unit)
    : unit_(unit), removeAllPending_(model.table(unit).removeAllVersion != kNoRemoveAll) {
  owePending(model.table(unit));
  oweCommitted(model);
}

// From a pending write: the pending writes before it are skipped, and nobody knows which they are.
// From a committed entry: so are all pending writes, and the rows before it. From anything else the
// iteration is at its end.
WalkExpectation::WalkExpectation(const Model& model, Unit unit, Key from)
    : unit_(unit), removeAllPending_(model.table(unit).removeAllVersion != kNoRemoveAll) {
  const UnitTable& table = model.table(unit);
  if (const auto pending = table.pendingWrites.find(from); pending != table.pendingWrites.end()) {
    oweCommitted(model);
    owed_[from] = {true, pending->second->placed};
    first_ = from;
    return;
  }
  inCommitted_ = true;
  const ConfigRow* row = removeAllPending_ ? nullptr : model.liveRow(unit, from);
  if (row == nullptr) {
    ended_ = true;
  } else if (!table.pendingRemoves.contains(from)) {
    owed_[from] = {false, row->placed};
    first_ = from;
  }
}

void WalkExpectation::owePending(const UnitTable& table) {
  for (const auto& [key, request] : table.pendingWrites) {
    owed_[key] = {true, request->placed};
  }
}

void WalkExpectation::oweCommitted(const Model& model) {
  if (removeAllPending_) {
    return;
  }
  const UnitTable& table = model.table(unit_);
  for (const auto& [key, row] : model.shared().config.at(unit_)) {
    if (!row.isDeleted && !table.pendingWrites.contains(key) &&
        !table.pendingRemoves.contains(key)) {
      owed_[key] = {false, row.placed};
    }
  }
}

void WalkExpectation::follow(const Model& model, Situations& situations) {
  for (auto at = owed_.begin(); at != owed_.end();) {
    const Owed before = at->second;
    const bool stays = stillOwed(model, at->first, at->second, situations);
    if (first_ == at->first && (!stays || at->second.placed != before.placed)) {
      first_.reset();
    }
    at = stays ? std::next(at) : owed_.erase(at);
  }
}

// A pending write that was committed is owed as a committed entry from then on.
bool WalkExpectation::stillOwed(const Model& model, Key key, Owed& owed,
                                Situations& situations) const {
  const UnitTable& table = model.table(unit_);
  const auto pending = table.pendingWrites.find(key);
  if (pending != table.pendingWrites.end()) {
    return owed.pending && pending->second->placed == owed.placed;
  }
  const ConfigRow* row = model.liveRow(unit_, key);
  if (row == nullptr || table.pendingRemoves.contains(key)) {
    return false;
  }
  if (!owed.pending) {
    return row->placed == owed.placed;
  }
  if (removeAllPending_ || inCommitted_) {
    return false;
  }
  situations.met(Situation::walkMovedToCommitted);
  owed = {false, row->placed};
  return true;
}

std::string WalkExpectation::yielded(const Model& model, const std::optional<Entry>& entry,
                                     bool fromTransient) {
  if (!entry) {
    return ended();
  }
  if (ended_) {
    return fmt::format("an iteration at its end yields {}", print(*entry));
  }
  if (first_ && entry->key != *first_) {
    return fmt::format("an iteration from key {} begins with {}", *first_, print(*entry));
  }
  first_.reset();
  std::string wrong =
      fromTransient ? yieldedPending(model, *entry) : yieldedCommitted(model, *entry);
  owed_.erase(entry->key);
  return wrong;
}

std::string WalkExpectation::yieldedPending(const Model& model, const Entry& entry) {
  const UnitTable& table = model.table(unit_);
  const auto pending = table.pendingWrites.find(entry.key);
  if (inCommitted_ || pending == table.pendingWrites.end() || pending->second->entry != entry) {
    return fmt::format("an iteration yields as pending {}", print(entry));
  }
  if (!yielded_.insert(pending->second->placed).second) {
    return fmt::format("an iteration yields twice {}", print(entry));
  }
  return {};
}

std::string WalkExpectation::yieldedCommitted(const Model& model, const Entry& entry) {
  inCommitted_ = true;
  const UnitTable& table = model.table(unit_);
  const ConfigRow* row = model.liveRow(unit_, entry.key);
  const bool shadowed =
      table.pendingWrites.contains(entry.key) || table.pendingRemoves.contains(entry.key);
  if (removeAllPending_ || row == nullptr || shadowed || row->entry != entry) {
    return fmt::format("an iteration yields as committed {}", print(entry));
  }
  if (!yielded_.insert(row->placed).second) {
    return fmt::format("an iteration yields twice {}", print(entry));
  }
  return {};
}

std::string WalkExpectation::ended() {
  ended_ = true;
  if (owed_.empty()) {
    return {};
  }
  std::string keys;
  for (const auto& [key, owed] : owed_) {
    keys += fmt::format(" {}{}", key, owed.pending ? " (pending)" : "");
  }
  owed_.clear();
  return "an iteration ends without the keys" + keys;
}

}  // namespace fec_model
