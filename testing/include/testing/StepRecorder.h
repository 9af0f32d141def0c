// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "testing/FecHarness.h"
#include "testing/TraceRecorder.h"

namespace testing_support {

// Sees everything that the FEC table of an agent does outside itself, in the order in which it
// happens, and puts each step into one line, so that a test compares whole sequences as one text.
//
// What a line looks like:
//
//   8 FecTableSwTable::entryWrite | key: 65537|  a trace: level, class, function, message; a source
//                                                file of another name stands behind '@'. Behind
//                                                that of a row that was written stands the row.
//   unit 7 transientAddEntry 65537: ...          the table publishes an attribute: what it now has
//                                                pending for the key, and which of the objects of
//                                                requests are alive
//   unit 7 entryUsageSm eth1                     its linkage does
//   usage of eth1: 65537 comes                   a usage record does
//   handle 65537 v0.0, state 1, log version 7    a request's handle has a new state
//   status pendingHwWrites true                  the table's status has changed
//   status hwWriteAsked                          a hardware write has been asked for
//   group log takes 03:01:0805@7
//   group log applied 03:01:0805@7
//   resource eth1 publishes 517
//   client request eth1, dependency null         a call of the resource table's client
//   helper finalizeOnSuccess 65537 ...           a hook, with what it finds when it is called
//   handler first: 65537 v0.0, ...               a response handler is called
//
// Kind: scope guard of the trace sink and of what it watches.
// Ownership: holds the request handles that it has come across; refers to the agent, which outlives
// it, and to what it watches, whose end letGo() announces.
// Threads: one.
class StepRecorder {
 public:
  // Records the traces of every class of the FEC table, and of those below it that trace what the
  // FEC table has them do. Watches the clients of a recording resource table as they are made.
  explicit StepRecorder(FecHarness& agent, std::uint32_t levels = TraceRecorder::kAllLevels);
  StepRecorder(const StepRecorder&) = delete;
  StepRecorder& operator=(const StepRecorder&) = delete;
  ~StepRecorder();

  // The table, its linkage, the usage records that there are and those that come, the handles of
  // requests as they enter its transient state, its status, and the agent's group log.
  void watch(LoamFec::FecTableSwTable& table);
  void watch(RecordingResourceClient& client);
  // Heard after those who have subscribed before.
  void watch(ScriptedResourceHandle& resource);
  void watch(const Pell::Ptr<Asic::SwTableBase::EntryHandle const>& handle);
  // The handles of all entries in the group's queue, which need not be in transient state.
  void watchQueued();

  // Call when the watched objects are about to end: releases the handles, and does not unsubscribe
  // from the rest.
  void letGo();

  // A handler that puts its call into a line.
  LoamFec::FecTableSwTable::ResponseHandler handler(const std::string& name);
  // The same, and a line when the last copy of the handler goes.
  LoamFec::FecTableSwTable::ResponseHandler handlerThatTellsItsEnd(const std::string& name);

  // A line of the test's own.
  void step(std::string line) const { lines_->push_back(std::move(line)); }

  // Every line since the last call, each ended by a newline, after a first newline: what a raw
  // string literal holds that begins and ends with a line break.
  std::string take();

  // What a line says of a handle: key, entry version, state and log version; of another table's
  // handle its table version and state.
  static std::string describe(const Asic::DependencyEntryHandle* handle);

 private:
  class Watch;
  using Lines = std::vector<std::string>;
  using Linkage = LoamFec::FecTableIntfIdToDestIdLinkage;
  // What a publication says: attribute, element, old value.
  using Heard = std::function<void(short, const void*, const void*)>;

  Watch& addWatch(Pell::Publisher& publisher, Heard heard);
  bool watches(const Pell::Publisher& publisher) const;
  void watchStatus(Asic::OrderedSwTableStatus& status);
  void watchGroupLog(Asic::GroupLog& groupLog);
  void watchLinkage(Linkage& linkage);
  void watchRecord(const Linkage& linkage, Linkage::LocalUsageUpdateSm& record);
  void tablePublishes(LoamFec::FecTableSwTable& table, short attribute, const void* element,
                      const void* oldValue);
  void linkagePublishes(Linkage& linkage, const void* element);
  void traced(const Zev::TraceRecord& record) const;
  std::string rowBehind(std::string_view message) const;

  FecHarness& agent_;
  std::shared_ptr<Lines> lines_;
  TraceRecorder traces_;  // keeps the levels; the sink is this recorder's own
  std::vector<std::unique_ptr<Watch>> watches_;
};

// Helper that puts its calls into lines, each with what stands in the log, the table's maps and the
// handle at that moment.
//
// Ownership: refers to the recorder.
class StepHelper : public Zev::Typed<StepHelper, LoamFec::FecTableSwTableHelperBase> {
 public:
  static constexpr const char* kTypeName = "testing_support::StepHelper";
  using Wrapper = Pell::Ptr<LoamFec::FecTableEntryWrapper>;

  explicit StepHelper(StepRecorder& recorder) : recorder_(&recorder) {}

  void finalizeOnSuccess(Wrapper const& entry, bool isDelete) override;
  bool finalizeOnFailure(Wrapper const& entry, bool isDelete,
                         Pell::Ptr<LoamFec::FecTableSwTable> const& swTable) override;

  // What finalizeOnFailure() answers.
  bool logsFailures = false;

 private:
  StepRecorder* recorder_;
};

}  // namespace testing_support
