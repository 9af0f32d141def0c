// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"

namespace testing_support {

using ResourceTable = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable;

// Resource handle whose contents a test sets at will.
class ScriptedResourceHandle : public ResourceTable::ResourceHandle {
 public:
  using ResourceHandle::ResourceHandle;
  // Sets the contents, raises the update number and publishes nothing.
  void contentsAre(Asic::EntryState state, const LoamAdjLib::DestId& destId,
                   Pell::Ptr<Asic::NeededEntry const> neededEntry = nullptr) {
    contentsIs(state, destId, std::move(neededEntry));
  }
  // Publishes that attribute, the change attribute by default.
  void publish(short attributeId = kChangeAttribute) { publisher().attributeChange(attributeId); }
};

// A client without a resource table: hands out scripted handles and records the calls that it gets.
//
// Invariants: one handle per key, made on its first request or by handle().
class RecordingResourceClient : public ResourceTable::ClientInstance {
 public:
  struct Ack {
    LoamAdjLib::IntfIdToDestIdResourceTableEntryKey key;
    std::uint32_t updateNumber;
    ResourceTable::Dependency dependency;
  };
  struct Release {
    LoamAdjLib::IntfIdToDestIdResourceTableEntryKey key;
    ResourceTable::Dependency dependency;
  };

  RecordingResourceClient() : ClientInstance(nullptr) {}

  Pell::Ptr<ResourceTable::ResourceHandle const> request(
      const ResourceTable::Key& key, const ResourceTable::Dependency& dependency) override;
  void ackUpdate(const Pell::Ptr<ResourceTable::ResourceHandle const>& handle,
                 std::uint32_t updateNumber, const ResourceTable::Dependency& dependency) override;
  void release(const Pell::Ptr<ResourceTable::ResourceHandle const>& handle,
               const ResourceTable::Dependency& dependency) override;

  // Called with every call, after it has been recorded; an update number with ackUpdate alone.
  using OnCall = std::function<void(std::string_view operation, const ResourceTable::Key& key,
                                    std::optional<std::uint32_t> updateNumber,
                                    const ResourceTable::Dependency& dependency)>;
  OnCall onCall;

  // The handle of the interface of that name; state notResolved until a test sets it.
  Pell::Ptr<ScriptedResourceHandle> handle(const Pell::String& intfName);

  std::vector<ResourceTable::Key> requests;
  std::vector<ResourceTable::Dependency> requestDependencies;
  std::vector<Ack> acks;
  std::vector<Release> releases;
  // When set, every request is answered with null.
  bool answersNull = false;

 private:
  Pell::Ptr<ScriptedResourceHandle> handleOf(const ResourceTable::Key& key);

  std::map<std::uint64_t, Pell::Ptr<ScriptedResourceHandle>> handles_;
};

// Dependency of another table, in whatever state and under whatever version a test wants.
class FakeDependency : public Zev::Typed<FakeDependency, Asic::DependencyEntryHandle> {
 public:
  static constexpr const char* kTypeName = "testing_support::FakeDependency";

  explicit FakeDependency(Asic::TableVersion version =
                              Asic::TableVersion(Asic::SwTableId(0x03010806), Asic::LogVersion(1)))
      : version_(version) {}

  Asic::TableVersion entryTableVersion() const override { return version_; }
  void tableVersionIs(Asic::TableVersion version) { version_ = version; }
  void stateIs(Asic::EntryState state) { entryStateSet(state); }

 private:
  Asic::TableVersion version_;
};

}  // namespace testing_support
