// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "Model.h"
#include "Operations.h"
#include "RealTable.h"

namespace fec_model {

// Drives the real table and the model through the same operations and compares them after each.
//
// Kind: object with identity, for one sequence.
// Invariants: what the two do depends on the operations alone.
class ModelRun {
 public:
  ModelRun(const Start& start, WrongRule wrong);
  ModelRun(const ModelRun&) = delete;
  ModelRun& operator=(const ModelRun&) = delete;
  ~ModelRun();

  // Does one operation on both sides and compares what it may have touched. Returns what they
  // disagree on, "" for nothing; after a disagreement the run is over.
  std::string step(const Operation& operation);
  // Lets everything come to its end; with live resources, what must hold then is looked at.
  std::string settle();
  // Compares everything; a long log only on demand.
  std::string compareAll(bool longLogToo);

  const Situations& situations() const { return model_.situations; }

 private:
  struct Answer {
    std::size_t request;
    Key key;
    int state;
    Version version;
    friend bool operator==(const Answer&, const Answer&) = default;
  };
  struct OpenWalk {
    RealTable::Walk real;
    WalkExpectation expected;
    Version openedAt = 0;
  };
  struct Slot {
    Pell::Ptr<testing_support::FakeDependency> real;
    HandlePtr model;
  };
  // What the owner of a live resource wants, and which destinations it waits to be let go.
  struct Wish {
    int state = kNotResolved;
    Destination destination;
    Needed needed;
    std::set<std::uint32_t> replaced;
  };
  // What a request depends on, on both sides.
  struct Dependency {
    RealTable::RealDependency real;
    HandlePtr model;
  };

  void makeUnits(std::uint32_t units, std::uint32_t resets);
  void makeUnit(Unit unit, bool reset);
  void clear(Unit unit, bool releaseResources);
  void restart(const Operation& operation);
  Orders orders(Unit unit);

  void apply(const Operation& operation);
  void request(const Operation& operation);
  void requestReal(const Operation& operation, const RealTable::RealDependency& dependency);
  void requestModel(const Operation& operation, const HandlePtr& dependency);
  // What a handler or a hook asks for; reports too.
  void reactReal(const std::optional<Operation>& what);
  void reactModel(const std::optional<Operation>& what);
  RealTable::RealHandler realHandler(const Operation& operation);
  Handler modelHandler(const Operation& operation);
  Dependency dependency(std::uint32_t which) const;
  void newDependency(std::uint32_t slot);
  void resource(const Operation& operation);
  void wish(Interface intf, int state, std::uint32_t number);
  void followResources();
  void followFreed(const Destination& destination);
  void wishAgain();
  bool isSpokenFor(Unit unit) const;
  Orders ordersOfAll();
  std::string compareSettled();
  void hooks(const Operation& operation);
  void turns(bool all);
  bool turnIsWhole() const;
  void report(const Operation& operation);
  void openWalk(const Operation& operation);
  std::string stepWalk(const Operation& operation);
  void update(const Operation& operation);

  std::string compareTouched(const Operation& operation);
  void compareAnswers(Comparison& comparison);
  void compareResourceEvents(Comparison& comparison);
  void compareNewLogRows(Comparison& comparison);
  void compareKey(Comparison& comparison, Unit unit, Key key);
  void compareOpenHandles(Comparison& comparison);
  void compareUnit(Comparison& comparison, Unit unit);

  std::uint32_t units_;
  bool live_;
  RealTable real_;
  Model model_;

  // Of every request, in the order of the requests; null on the real side for a remove-all, whose
  // handle its requester never sees.
  std::vector<RealTable::RealHandle> realHandles_;
  std::vector<HandlePtr> modelHandles_;
  std::vector<std::size_t> open_;  // those that have not come to their end
  std::vector<Answer> realAnswers_;
  std::vector<Answer> modelAnswers_;
  std::map<std::uint32_t, Slot> slots_;
  std::map<std::uint32_t, OpenWalk> walks_;
  std::map<Interface, Wish> wishes_;
  Version startedAt_ = 0;     // what was logged before the restart
  std::set<Unit> wereReset_;  // since the restart, their resources kept
  std::string disagreement_;  // found while an operation was done
  Version lastReport_ = 0;
  Version comparedTo_ = 0;  // log rows up to this version were compared when they were new
  Version dependencyVersions_ = 0;
};

// How a sequence went.
struct Outcome {
  std::string disagreement;  // "": none
  std::size_t steps = 0;     // done, the one that disagreed included
  Situations situations;
};
Outcome runOperations(const Start& start, const std::vector<Operation>& operations,
                      WrongRule wrong = WrongRule::none);

}  // namespace fec_model
