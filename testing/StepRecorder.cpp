// SPDX-License-Identifier: Apache-2.0

// Each publisher gets a subscriber of its own. Usage records come and go inside a commit: the
// linkage's publication that files one finds it there, and the one that removes it is the last
// moment at which it can be left.

#include "testing/StepRecorder.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "Asic/GroupLog.h"
#include "Zev/AllocationTracker.h"

namespace testing_support {

namespace {

using LoamFec::FecTableConstants;
using LoamFec::FecTableDataModelEntryKey;
using LoamFec::FecTableSwTable;
using ResourceKey = LoamAdjLib::IntfIdToDestIdResourceTableEntryKey;

template <typename T>
T valueAt(const void* address) {
  T value{};
  std::memcpy(&value, address, sizeof value);
  return value;
}

std::string nameOf(const Zev::TypeRecord& type, short attribute) {
  for (const Zev::TypeRecord::Attribute& known : type.attributes) {
    if (known.id == attribute) {
      return std::string(known.name);
    }
  }
  return fmt::format("attribute {}", attribute);
}

// The number between the text's first blank behind the given words and the next one.
std::uint64_t numberBehind(std::string_view text, std::string_view words) {
  const std::size_t at = text.find(words);
  std::uint64_t number = 0;
  if (at != std::string_view::npos) {
    const std::string_view rest = text.substr(at + words.size());
    std::from_chars(rest.data(), rest.data() + rest.size(), number);
  }
  return number;
}

// The source file of a class that does not stand in one of its own name.
std::string_view fileOf(std::string_view className) {
  if (className == "FecTableIntfIdToDestIdLinkage" || className == "LocalUsageUpdateSm") {
    return "FecTableResourceTableLinkage";
  }
  if (className == "FecTableSwTableIteratorState" || className == "SwTableEntries_py") {
    return "FecTableSwTable";
  }
  for (const std::string_view other :
       {"FecTableEntryWrapper", "FecTableResolverEntry", "FecTableSwTableHelperBase"}) {
    if (className == other) {
      return "FecTableInfraTypes";
    }
  }
  return className;
}

// The log entry's fields that are not zero, or not the default destination.
std::string entryText(const LoamFec::FecTableDataModelLogEntry& entry) {
  const LoamFec::FecTableDataModelLogEntry none;
  std::string text = fmt::format("key {}", entry.key);
  const auto number = [&text](std::string_view name, std::uint32_t value) {
    text += value == 0 ? std::string() : fmt::format(", {} {}", name, value);
  };
  const auto destination = [&](std::string_view name, const LoamFec::FecDestination& value) {
    if (!LoamFec::FecDestination::isEq(value, none.resolvedDest)) {
      text += fmt::format(", {} {}/{}/{}", name, value.first, value.second, value.third);
    }
  };
  number("flagA", entry.flagA);
  destination("client", entry.clientDest);
  number("opaqueA", entry.opaqueA);
  number("opaqueB", entry.opaqueB);
  number("flagB", entry.flagB);
  destination("resolved", entry.resolvedDest);
  return text;
}

std::string rowText(const LoamFec::FecTableDataModelLogGlintEntry& row) {
  return fmt::format(": operation {}, unit {}, {}", row.operation(), row.unitId(),
                     entryText(row.logEntry()));
}

std::string rowText(const LoamFec::FecTableDataModelConfigGlintEntry& row) {
  return fmt::format(": version {}, deleted {}, interface '{}', {}", row.version(), row.isDeleted(),
                     row.rsrcKeys().intfId, entryText(row.logEntry()));
}

std::string rowText(const Asic::GroupLogRow& row) {
  std::string text = fmt::format(": {} needs", row.tableVersion());
  for (std::uint32_t at = 0; at < row.neededCount(); ++at) {
    text += fmt::format(" {}", row.needed(at));
  }
  return row.neededCount() == 0 ? text + " nothing" : text;
}

// The version of what the table's map holds for a key.
std::string pendingText(const Pell::Ptr<LoamFec::FecTableEntryWrapper>* held) {
  if (held == nullptr) {
    return "none";
  }
  const auto& handle = dynamic_cast<const FecTableSwTable::EntryHandle&>(*(*held)->entryHandle());
  return fmt::format("v{}", handle.version());
}

std::int64_t alive(std::string_view typeName) {
  std::int64_t count = 0;
  for (const Zev::AllocationTracker* tracker : Zev::AllocationTracker::all()) {
    count += tracker->typeName() == typeName ? tracker->live() : 0;
  }
  return count;
}

// What of requests has been made, and not ended, by now.
std::string madeText() {
  return fmt::format("alive: {} wrappers, {} resolver entries",
                     alive(LoamFec::FecTableEntryWrapper::kTypeName),
                     alive(LoamFec::FecTableResolverEntry::kTypeName));
}

// What a hook finds: the wrapper's destination and handle, the table's maps and the log.
std::string found(const LoamFec::FecTableEntryWrapper& wrapper) {
  const auto& handle = dynamic_cast<const FecTableSwTable::EntryHandle&>(*wrapper.entryHandle());
  const auto& table = dynamic_cast<const FecTableSwTable&>(*handle.table());
  const FecTableDataModelEntryKey& key = wrapper.key();
  const LoamFec::FecDestination& destination = wrapper.entry().resolvedDest;
  const Asic::EntryVersion* version = table.transientVersionForKey().find(key);
  return fmt::format(
      "destination {}/{}/{}; handle {}; add {}, remove {}, version {}; log at {}, row {}",
      destination.first, destination.second, destination.third, StepRecorder::describe(&handle),
      table.transientAddEntry().has(key), table.transientRemoveEntry().has(key),
      version == nullptr ? "none" : valueToStrep(*version), table.entryLog()->tableVersion(),
      table.hasRow(key));
}

}  // namespace

class StepRecorder::Watch {
 public:
  Watch(Pell::Publisher& publisher, Heard heard)
      : publisher_(&publisher),
        subscriber_([heard = std::move(heard)](Pell::Publisher*, Pell::Subscriber*, short attribute,
                                               const void* element, const void* oldValue) {
          heard(attribute, element, oldValue);
        }) {
    publisher_->subscriberAdd(subscriber_);
  }
  ~Watch() {
    if (publisher_ != nullptr) {
      publisher_->subscriberRemove(subscriber_);
    }
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  bool isOf(const Pell::Publisher& publisher) const { return publisher_ == &publisher; }
  void handleIs(const Pell::Ptr<Asic::SwTableBase::EntryHandle const>& handle) { handle_ = handle; }
  bool holdsHandle() const { return static_cast<bool>(handle_); }
  void recordIs(const Linkage& linkage, const ResourceKey& key) {
    linkage_ = &linkage;
    resource_ = key;
  }
  bool isOfRecord(const Linkage& linkage, const ResourceKey& key) const {
    return linkage_ == &linkage && resource_ == key;
  }
  // The publisher goes first.
  void letGo() { publisher_ = nullptr; }

 private:
  Pell::Publisher* publisher_;  // null: it need not be left
  Pell::Ptr<Asic::SwTableBase::EntryHandle const> handle_;
  const Linkage* linkage_ = nullptr;  // of the usage record that is watched
  ResourceKey resource_;
  Pell::Subscriber subscriber_;
};

StepRecorder::StepRecorder(FecHarness& agent, std::uint32_t levels)
    : agent_(agent),
      lines_(std::make_shared<Lines>()),
      traces_({"FecTableSwTable", "FecTableEntryLog", "FecTableEntryWrapper",
               "FecTableResolverEntry", "FecTableSwTableHelperBase",
               "FecTableIntfIdToDestIdLinkage", "LocalUsageUpdateSm", "FecTableInterface",
               "FecTableSwTableIteratorState", "SwTableEntries_py", "GroupResolver", "GlintMap"},
              levels) {
  Zev::traceSinkIs([this](const Zev::TraceRecord& record) { traced(record); });
  agent_.onClient = [this](RecordingResourceClient& client) { watch(client); };
}

StepRecorder::~StepRecorder() { agent_.onClient = nullptr; }

std::string StepRecorder::take() {
  std::string text = "\n";
  for (const std::string& line : *lines_) {
    text += line + "\n";
  }
  lines_->clear();
  return text;
}

std::string StepRecorder::describe(const Asic::DependencyEntryHandle* handle) {
  if (handle == nullptr) {
    return "null";
  }
  if (const auto* typed = dynamic_cast<const FecTableSwTable::EntryHandle*>(handle)) {
    return fmt::format("{} v{}, state {}, log version {}", typed->key(), typed->version(),
                       typed->entryState(), typed->logVersion());
  }
  return fmt::format("{}, state {}", handle->entryTableVersion(), handle->entryState());
}

// Traces.

void StepRecorder::traced(const Zev::TraceRecord& record) const {
  if (record.className == "GlintMap") {
    step(fmt::format("store {}{}", record.message,
                     record.function == "rowIs" ? rowBehind(record.message) : std::string()));
    return;
  }
  const std::string file =
      record.file == fileOf(record.className) ? std::string() : fmt::format("@{}", record.file);
  step(fmt::format("{} {}{}::{} |{}|", record.level, record.className, file, record.function,
                   record.message));
}

// The row that a trace says has been written, as it stands there now.
std::string StepRecorder::rowBehind(std::string_view message) const {
  if (!agent_.started()) {
    return {};
  }
  const std::uint64_t key = numberBehind(message, ": row ");
  const auto isOf = [&](const Pell::String& path) { return message.starts_with(path); };
  if (isOf(FecTableConstants::groupLogGlintPath())) {
    auto& rows =
        static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(agent_.group()->groupLog()->logMap());
    return rowText(rows.row(key).value());
  }
  if (isOf(FecTableConstants::entryLogGlintPath())) {
    return rowText(
        agent_.log().tableEntryLog()->entryLogConfig().row(Asic::LogVersion(key)).value());
  }
  const Asic::UnitId unit(static_cast<std::uint16_t>(numberBehind(message, ".unit")));
  if (isOf(FecTableConstants::configGlintPath(unit))) {
    const auto& entries = agent_.log().tableConfigGlint(unit)->swTableEntries();
    return rowText(entries.row(FecHarness::key(static_cast<std::uint32_t>(key))).value());
  }
  return {};
}

// What is watched.

StepRecorder::Watch& StepRecorder::addWatch(Pell::Publisher& publisher, Heard heard) {
  return *watches_.emplace_back(std::make_unique<Watch>(publisher, std::move(heard)));
}

bool StepRecorder::watches(const Pell::Publisher& publisher) const {
  return std::any_of(watches_.begin(), watches_.end(),
                     [&](const auto& watch) { return watch->isOf(publisher); });
}

void StepRecorder::watch(FecTableSwTable& table) {
  addWatch(table.publisher(),
           [this, &table](short attribute, const void* element, const void* oldValue) {
             tablePublishes(table, attribute, element, oldValue);
           });
  watchLinkage(*table.intfIdToDestIdLinkage());
  if (!watches(table.status()->publisher())) {
    watchStatus(*table.status());
    watchGroupLog(*agent_.group()->groupLog());
  }
}

void StepRecorder::watchStatus(Asic::OrderedSwTableStatus& status) {
  addWatch(status.publisher(), [this, &status](short attribute, const void*, const void*) {
    const std::string name = nameOf(status.fwkType(), attribute);
    if (attribute == Asic::OrderedSwTableStatus::kHwWriteAskedAttribute) {
      step("status " + name);
      return;
    }
    const bool value = attribute == Asic::OrderedSwTableStatus::kSuspendAttribute
                           ? status.suspend()
                           : status.pendingHwWrites();
    step(fmt::format("status {} {}", name, value));
  });
}

void StepRecorder::watchGroupLog(Asic::GroupLog& groupLog) {
  addWatch(groupLog.publisher(), [this, &groupLog](short attribute, const void*, const void*) {
    if (attribute == Asic::GroupLog::kAppliedVersionsAttribute) {
      step(fmt::format("group log applied {}", groupLog.tableVersion(FecTableConstants::kTableId)));
      return;
    }
    step(fmt::format("group log takes version {} of the log", agent_.log().tableVersion()));
  });
}

void StepRecorder::watchLinkage(Linkage& linkage) {
  addWatch(linkage.publisher(), [this, &linkage](short, const void* element, const void*) {
    linkagePublishes(linkage, element);
  });
  linkage.forEachUsage([this, &linkage](const auto& record) { watchRecord(linkage, *record); });
}

void StepRecorder::watchRecord(const Linkage& linkage, Linkage::LocalUsageUpdateSm& record) {
  addWatch(record.publisher(), [this, &record](short, const void* element, const void*) {
    const auto key = valueAt<FecTableDataModelEntryKey>(element);
    step(fmt::format("usage of {}: {} {}", record.key(), key,
                     record.entryUsageHas(key) ? "comes" : "goes"));
  }).recordIs(linkage, record.key());
}

void StepRecorder::linkagePublishes(Linkage& linkage, const void* element) {
  const auto key = valueAt<ResourceKey>(element);
  const auto filed = linkage.entryUsageSm(key);
  step(fmt::format("unit {} entryUsageSm {} {}", linkage.swTable()->unitId(), key,
                   filed ? "filed" : "removed"));
  if (filed) {
    watchRecord(linkage, *filed);
    return;
  }
  std::erase_if(watches_, [&](const auto& watch) { return watch->isOfRecord(linkage, key); });
}

void StepRecorder::watch(RecordingResourceClient& client) {
  client.onCall = [this](std::string_view operation, const ResourceTable::Key& key,
                         std::optional<std::uint32_t> updateNumber,
                         const ResourceTable::Dependency& dependency) {
    step(fmt::format("client {} {}{}, dependency {}", operation, key,
                     updateNumber ? fmt::format(" number {}", *updateNumber) : std::string(),
                     describe(dependency.get())));
  };
}

void StepRecorder::watch(ScriptedResourceHandle& resource) {
  addWatch(resource.publisher(), [this, name = fmt::format("{}", resource.key())](
                                     short attribute, const void*, const void*) {
    step(fmt::format("resource {} publishes {}", name, attribute));
  });
}

void StepRecorder::watch(const Pell::Ptr<Asic::SwTableBase::EntryHandle const>& handle) {
  if (!watches(handle->publisher())) {
    const Asic::SwTableBase::EntryHandle* seen = handle.get();
    addWatch(handle->publisher(), [this, seen](short, const void*, const void*) {
      step(fmt::format("handle {}", describe(seen)));
    }).handleIs(handle);
  }
}

void StepRecorder::watchQueued() {
  std::vector<Pell::Ptr<Asic::SwTableBase::EntryHandle const>> handles;
  const TraceRecorder unseen({"GroupResolver"}, 0);
  agent_.group()->groupResolver()->resolverQueueDelIf([&](const Asic::ResolverEntry& entry) {
    handles.emplace_back(
        dynamic_cast<const LoamFec::FecTableResolverEntry&>(entry).swTableEntry()->entryHandle());
    return false;
  });
  for (const auto& handle : handles) {
    watch(handle);
  }
}

void StepRecorder::letGo() {
  std::erase_if(watches_, [](const auto& watch) { return watch->holdsHandle(); });
  for (const auto& watch : watches_) {
    watch->letGo();
  }
}

void StepRecorder::tablePublishes(FecTableSwTable& table, short attribute, const void* element,
                                  const void* oldValue) {
  std::string line = fmt::format("unit {} {}", table.unitId(), nameOf(table.fwkType(), attribute));
  if (attribute == FecTableSwTable::kEntryHandleInLogAttribute) {
    const auto sequence = valueAt<std::uint32_t>(element);
    const auto handle = table.entryHandleInLog(sequence);
    line +=
        fmt::format(" {} {}", sequence, handle ? "enters: " + describe(handle.get()) : "leaves");
  } else if (element != nullptr) {
    const auto key = valueAt<FecTableDataModelEntryKey>(element);
    const auto* added = table.transientAddEntry().find(key);
    const auto* removed = table.transientRemoveEntry().find(key);
    const auto* version = table.transientVersionForKey().find(key);
    line += fmt::format(" {}: add {}, remove {}, version {}; {}", key, pendingText(added),
                        pendingText(removed), version == nullptr ? "none" : valueToStrep(*version),
                        madeText());
    for (const auto* wrapper : {added, removed}) {
      if (wrapper != nullptr) {
        watch((*wrapper)->entryHandle());
      }
    }
  } else if (oldValue != nullptr) {
    line += fmt::format(" from {} to {}; {}", *static_cast<const Asic::MajorVersion*>(oldValue),
                        table.transientRemoveAllVersion(), madeText());
  }
  step(std::move(line));
}

// Handlers and hooks.

FecTableSwTable::ResponseHandler StepRecorder::handler(const std::string& name) {
  return [this, name](const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>& handle) {
    step(fmt::format("handler {}: {}", name, describe(handle.get())));
  };
}

FecTableSwTable::ResponseHandler StepRecorder::handlerThatTellsItsEnd(const std::string& name) {
  const std::shared_ptr<void> end(
      nullptr, [lines = lines_, name](void*) { lines->push_back("handler " + name + " goes"); });
  return [called = handler(name), end](const auto& handle) { called(handle); };
}

void StepHelper::finalizeOnSuccess(Wrapper const& entry, bool isDelete) {
  recorder_->step(fmt::format("helper finalizeOnSuccess {}, isDelete {}: {}", entry->key(),
                              isDelete, found(*entry)));
}

bool StepHelper::finalizeOnFailure(Wrapper const& entry, bool isDelete,
                                   Pell::Ptr<LoamFec::FecTableSwTable> const& swTable) {
  recorder_->step(fmt::format("helper finalizeOnFailure {}, isDelete {}, unit {}: {}", entry->key(),
                              isDelete, swTable->unitId(), found(*entry)));
  return logsFailures;
}

}  // namespace testing_support
