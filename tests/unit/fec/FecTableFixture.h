// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "FecTestNames.h"

namespace fec_test {

// What a software table announces, as a test compares it.
struct TableChange {
  short attribute;
  std::optional<std::uint32_t> element = std::nullopt;   // FEC identifier or sequence number
  std::optional<std::uint64_t> oldValue = std::nullopt;  // of the remove-all version
  friend bool operator==(const TableChange&, const TableChange&) = default;
};

inline void PrintTo(const TableChange& change, std::ostream* out) {
  *out << change.attribute;
  if (change.element) {
    *out << " element " << *change.element;
  }
  if (change.oldValue) {
    *out << " old value " << *change.oldValue;
  }
}

// Records the changes of one software table, and may react to them.
//
// Kind: scope guard; the table outlives it unless it is released.
class TableObserver {
 public:
  using Reaction = std::function<void(const TableChange&)>;

  explicit TableObserver(FecTableSwTable& table, Reaction reaction = {})
      : publisher_(&table.publisher()),
        reaction_(std::move(reaction)),
        subscriber_([this](Pell::Publisher*, Pell::Subscriber*, short attribute,
                           const void* element,
                           const void* oldValue) { heard(attribute, element, oldValue); }) {
    publisher_->subscriberAdd(subscriber_);
  }
  TableObserver(const TableObserver&) = delete;
  TableObserver& operator=(const TableObserver&) = delete;
  ~TableObserver() { remove(); }

  const std::vector<TableChange>& changes() const { return changes_; }
  void clear() { changes_.clear(); }
  void remove() {
    if (publisher_ != nullptr) {
      std::exchange(publisher_, nullptr)->subscriberRemove(subscriber_);
    }
  }
  // The table is going first: there is nothing to remove from any more.
  void release() { publisher_ = nullptr; }

 private:
  void heard(short attribute, const void* element, const void* oldValue) {
    TableChange change{attribute};
    if (element != nullptr) {
      std::memcpy(&change.element.emplace(), element, sizeof(std::uint32_t));
    }
    if (oldValue != nullptr) {
      change.oldValue = static_cast<const Asic::MajorVersion*>(oldValue)->value();
    }
    changes_.push_back(change);
    if (reaction_) {
      reaction_(change);
    }
  }

  Pell::Publisher* publisher_;
  Reaction reaction_;
  Pell::Subscriber subscriber_;
  std::vector<TableChange> changes_;
};

// Helper that does what a test says, and counts.
class ScriptedHelper : public Zev::Typed<ScriptedHelper, FecTableSwTableHelperBase> {
 public:
  static constexpr const char* kTypeName = "fec_test::ScriptedHelper";
  using Wrapper = Pell::Ptr<FecTableEntryWrapper>;
  void finalizeOnSuccess(Wrapper const& entry, bool isDelete) override {
    successes.push_back(entry->key().fecId());
    EXPECT_FALSE(isDelete);
    if (onSuccess) {
      onSuccess(entry);
    }
  }
  bool finalizeOnFailure(Wrapper const& entry, bool isDelete,
                         Pell::Ptr<FecTableSwTable> const& swTable) override {
    failures.push_back(entry->key().fecId());
    EXPECT_FALSE(isDelete);
    EXPECT_TRUE(swTable);
    if (onFailure) {
      onFailure(entry);
    }
    return logsFailures;
  }

  std::function<void(Wrapper const&)> onSuccess;
  std::function<void(Wrapper const&)> onFailure;
  bool logsFailures = false;
  std::vector<std::uint32_t> successes;
  std::vector<std::uint32_t> failures;
};

// An agent with one table over a recording resource client, and short words for what is done to it.
class FecTableFixture : public LeakCheckedTest {
 protected:
  using Table = FecTableSwTable;
  using Handle = Pell::Ptr<Table::EntryHandle const>;
  using Dependency = Table::Dependency;
  using State = Asic::EntryState;
  using QueuedEntry = Pell::Ptr<FecTableResolverEntry>;

  // The table's attributes, as its observers hear of them.
  static constexpr short kHelper = FecTableSwTable::kSwTableHelperAttribute;
  static constexpr short kAdd = FecTableSwTable::kTransientAddEntryAttribute;
  static constexpr short kRemove = FecTableSwTable::kTransientRemoveEntryAttribute;
  static constexpr short kVersion = FecTableSwTable::kTransientVersionForKeyAttribute;
  static constexpr short kRemoveAll = FecTableSwTable::kTransientRemoveAllVersionAttribute;
  static constexpr short kInLog = FecTableSwTable::kEntryHandleInLogAttribute;
  static constexpr short kLinkage = FecTableSwTable::kIntfIdToDestIdLinkageAttribute;
  // The invalid value of a version's 64-bit part, and of the remove-all version.
  static constexpr std::uint64_t kInvalid = ~std::uint64_t{0};

  explicit FecTableFixture(FecHarness::Resources resources = FecHarness::Resources::recording)
      : agent_(resources) {
    agent_.table();
  }

  Table& table() { return agent_.table(); }
  Asic::GroupResolver& resolver() { return *table().groupResolver(); }
  Asic::OrderedSwTableStatus& status() { return *table().status(); }
  FecTableEntryLog& log() { return agent_.log(); }
  static FecTableDataModelEntryKey key(std::uint32_t fecId) { return FecHarness::key(fecId); }

  // Requests. An empty interface name: the entry needs no destination. Answers go to responses().
  Handle write(std::uint32_t fecId, const Pell::String& intf = "", std::uint32_t mark = 0,
               const Dependency& dependency = nullptr) {
    return table().entryWriteWithResponseHandler(key(fecId), FecHarness::entry(intf, mark),
                                                 dependency, agent_.recordResponse());
  }
  Handle remove(std::uint32_t fecId, const Dependency& dependency = nullptr) {
    return table().entryRemoveWithResponseHandler(key(fecId), dependency, agent_.recordResponse());
  }
  void removeAll(const Dependency& dependency = nullptr) {
    table().entryRemoveAllWithResponseHandler(dependency, agent_.recordResponse());
  }
  const std::vector<Response>& responses() const { return agent_.responses; }

  // Has the resolver look at everything, and runs until nothing is left to do.
  void generation() {
    resolver().updateGenId();
    agent_.run();
  }
  void writeCommitted(std::uint32_t fecId, const Pell::String& intf = "", std::uint32_t mark = 0) {
    write(fecId, intf, mark);
    agent_.run();
  }
  // The resource of the interface takes that state; the resolver looks again.
  void resourceIs(const Pell::String& intf, State state, std::uint32_t destination = 0xFFFF) {
    agent_.client().handle(intf)->contentsAre(state, {destination, 0, 0});
    generation();
  }
  static Pell::Ptr<FakeDependency> dependency(State state) {
    auto made = Zev::makeObject<FakeDependency>();
    made->stateIs(state);
    return made;
  }

  // What waits in the resolver's queue, oldest first.
  std::vector<QueuedEntry> queued() {
    std::vector<QueuedEntry> entries;
    resolver().resolverQueueDelIf([&entries](const Asic::ResolverEntry& entry) {
      const auto& typed = dynamic_cast<const FecTableResolverEntry&>(entry);
      entries.emplace_back(const_cast<FecTableResolverEntry*>(&typed));
      return false;
    });
    return entries;
  }

  const FecTableEntryWrapper* pendingWrite(std::uint32_t fecId) {
    const auto* held = table().transientAddEntry().find(key(fecId));
    return held == nullptr ? nullptr : held->get();
  }
  const FecTableEntryWrapper* pendingRemove(std::uint32_t fecId) {
    const auto* held = table().transientRemoveEntry().find(key(fecId));
    return held == nullptr ? nullptr : held->get();
  }
  // The 64-bit part of the key's pending version; nothing when nothing is pending.
  std::optional<std::uint64_t> pendingVersion(std::uint32_t fecId) {
    const auto* held = table().transientVersionForKey().find(key(fecId));
    return held == nullptr ? std::nullopt : std::optional(held->major());
  }
  bool nothingPending(std::uint32_t fecId) {
    return pendingWrite(fecId) == nullptr && pendingRemove(fecId) == nullptr &&
           !pendingVersion(fecId);
  }
  bool committed(std::uint32_t fecId) { return log().entryHas(key(fecId), table().unitId()); }
  std::uint32_t committedMark(std::uint32_t fecId) {
    return table().entryFromConfig(key(fecId)).opaqueA;
  }
  std::uint64_t logVersion() { return log().tableVersion().value(); }
  std::optional<FecTableDataModelLogGlintEntry> logRow(std::uint64_t version) {
    return log().tableEntryLog()->entryLogConfig().row(Asic::LogVersion(version));
  }

  // What the table has traced: "level function|message|".
  static Texts lines(const TraceRecorder& traces) {
    Texts found;
    for (const TraceRecorder::Record& record : traces.records()) {
      EXPECT_EQ(record.className, "FecTableSwTable");
      EXPECT_EQ(record.file, "FecTableSwTable");
      found.push_back(fmt::format("{} {}|{}|", record.level, record.function, record.message));
    }
    return found;
  }

  FecHarness agent_;
};

}  // namespace fec_test
