// SPDX-License-Identifier: Apache-2.0

// An agent of one's own around the FEC table: its event loop, its hooks, its hardware.

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <span>
#include <utility>

#include "Asic/Constants.h"
#include "Vanta/EntityManager.h"
#include "fec/FecTableInterface.h"
#include "hardware/HardwareTurns.h"
#include "hardware/LogDrivenHardware.h"

using Constants = LoamFec::FecTableConstants;
using HardwareEntry = LoamFec::FecTableDataModelLogEntry;
using Key = LoamFec::FecTableDataModelEntryKey;
using Resources = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable;

// Your loop runs what the library posts, one task after the other, on one thread.
class Loop : public Zev::EventLoop {
 public:
  void post(Task task) override { tasks_.push_back(std::move(task)); }
  void runUntilIdle() {
    for (; !tasks_.empty(); tasks_.pop_front()) {
      tasks_.front()();
    }
  }

 private:
  std::deque<Task> tasks_;
};

// Your platform sees each write before it is logged.
class Hooks : public LoamFec::FecTableSwTableHelperBase {
 public:
  void finalizeOnSuccess(const LoamFec::FecTableEntryWrapper::Ptr& entry, bool) override {
    std::cout << "hook: FEC " << entry->key().fecId() << " resolved to destination "
              << entry->destId().first << '\n';
  }
};

// Your hardware takes changes in order, a batch at a time, and can be read back. Entries are bytes
// to the library; those of the FEC table are a HardwareEntry. This chip has one unit with one
// table.
class Chip : public Hardware::AsicDriver {
 public:
  std::size_t apply(std::span<const Change> changes) override {
    for (const Change& change : changes) {
      if (change.kind == Change::Kind::write) {
        HardwareEntry& entry = entries_[change.key];
        std::memcpy(&entry, change.entry.data(), sizeof(entry));
        std::cout << "hardware: FEC " << change.key << " leaves through destination "
                  << entry.resolvedDest.first << '\n';
      } else if (change.kind == Change::Kind::remove) {
        entries_.erase(change.key);
        std::cout << "hardware: FEC " << change.key << " is removed\n";
      } else {
        entries_.clear();
      }
    }
    return changes.size();  // fewer, and fault() says why, when the hardware refuses one
  }
  Pell::String fault() const override { return ""; }

  bool read(Asic::SwTableId, Asic::UnitId, std::uint64_t key,
            std::span<std::byte> entry) const override {
    if (entries_.contains(key)) {
      std::memcpy(entry.data(), &entries_.at(key), sizeof(HardwareEntry));
    }
    return entries_.contains(key);
  }
  std::size_t keys(Asic::SwTableId, Asic::UnitId, Cursor& at,
                   std::span<std::uint64_t> keys) const override {
    std::size_t count = 0;
    for (auto next = entries_.lower_bound(at); next != entries_.end() && count < keys.size();) {
      at = next->first + 1;
      keys[count++] = next++->first;
    }
    return count;
  }
  std::uint32_t entries(Asic::SwTableId, Asic::UnitId) const override {
    return static_cast<std::uint32_t>(entries_.size());
  }
  std::uint32_t capacity(Asic::SwTableId) const override { return 2 * Constants::kConfigCapacity; }

 private:
  std::map<std::uint64_t, HardwareEntry> entries_;
};

void run(Loop& loop, const Pell::String& stateFolder) {
  // The order matters: each of these uses those before it.
  const auto database = Zev::makeObject<Vanta::EntityManager>(stateFolder);
  const auto tables = Zev::makeObject<Asic::OrderedTableInterface>(loop, database);
  tables->makeGroupIntf(Constants::kAgentName, Constants::kGroupName,
                        Constants::kTableId.agentAndGroupId());
  const auto group = tables->groupIntf(
      Asic::Constants::canonicalizeGroupName(Constants::kAgentName, Constants::kGroupName));
  const auto resources =
      Zev::makeObject<Resources>(loop, group->groupResolver(), group->groupLog());
  tables->resourceTableIs(LoamFec::FecTableInterface::resourceTableName(), resources);
  const auto fec = LoamFec::FecTableInterface::getIntf(tables);
  const auto table = fec->makeSwTable(Asic::UnitId(0), Zev::makeObject<Hooks>(), false);
  Hardware::LogDrivenHardware hardware(stateFolder, {Asic::UnitId(0)}, std::make_unique<Chip>());
  Hardware::HardwareTurns turns(loop, group, fec->swTableStatus(), hardware);
  turns.resume();

  const auto answer = [](const auto& handle) {
    const bool isDone = handle->entryState() == Asic::SwTableBase::success();
    std::cout << "answer: " << (isDone ? "done" : "failed") << ", version "
              << handle->logVersion().value() << '\n';
  };
  const auto eth1 = Wirex::IntfId::fromName("eth1");
  resources->destinationIs(eth1, {11, 0, 0});
  for (const std::uint32_t fecId : {1U, 2U}) {
    LoamFec::FecTableDataModelEntry entry;
    entry.intfId = eth1;
    table->entryWriteWithResponseHandler(Key(fecId), entry, nullptr, answer);
  }
  loop.runUntilIdle();

  std::cout << "eth1 moves to destination 12\n";
  resources->destinationIs(eth1, {12, 0, 0});
  loop.runUntilIdle();

  for (const std::uint32_t fecId : {1U, 2U}) {
    table->entryRemoveWithResponseHandler(Key(fecId), nullptr, answer);
  }
  loop.runUntilIdle();
}

int main() {
  Pell::String folder = std::filesystem::temp_directory_path() / "loamfec-embed.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) {
    std::cerr << "cannot make " << folder << '\n';
    return EXIT_FAILURE;
  }
  Loop loop;
  run(loop, folder);
  Zev::Entity::singletonDelAll();  // the tables, which refer to the loop
  std::filesystem::remove_all(folder);
}
