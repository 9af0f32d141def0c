// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "Asic/HardwareSide.h"
#include "FecAsic.h"
#include "FecRows.h"
#include "Pell/HashMap.h"
#include "StepBudget.h"

namespace Hardware {

// The versions up to which a resynchronisation may go.
struct ResynchronisationRange {
  // The log rows up to it have been applied, or are known to be gone.
  Asic::LogVersion applied;
  // Not below applied. Operations up to it count as taken when the resynchronisation is over.
  Asic::LogVersion limit;
  // The operation behind the limit waits for another table.
  bool blocked = false;
  // Another resynchronisation must follow anyway when this version has been applied.
  std::optional<Asic::LogVersion> owed;
  // The writer is on this thread: while the hardware looks, it is not in the middle of a change.
  bool writerAtRest = false;
};

// Brings the hardware of all units to the state after all operations up to the limit, in steps
// between which the writer may go on.
//
// First each configuration row is looked at once. One whose version is not above the limit decides:
// the hardware is made equal to it, or the key is taken off. For the other keys the log decides:
// its rows between applied and limit are applied to them in order, and no later ones. Last, entries
// of the hardware for which no row was seen are taken off, unless damage has hidden rows of the
// unit.
//
// An entry for which the ASIC has no room waits until everything that must go has gone.
//
// Kind: object with identity, for one resynchronisation.
// Ownership: refers to the units, the log and the ASIC.
// Threads: one; the writer may be another process.
// Invariants: nobody applies operations to the units meanwhile. A decision about a key is final,
// whatever happens to its row later: a later change has a version above the limit and comes from
// the log.
class Resynchroniser {
 public:
  Resynchroniser(const ConfigTables& units, LogMap& log, FecAsic& asic,
                 ResynchronisationRange range);
  Resynchroniser(const Resynchroniser&) = delete;
  Resynchroniser& operator=(const Resynchroniser&) = delete;

  // Goes on until it is done, the budget is spent, or the ASIC takes no more. True: done.
  bool step(StepBudget& budget);

  // Once it is done:
  Asic::LogVersion limit() const { return range_.limit; }
  // Of the keys that configuration rows have decided.
  const Asic::Resynchronisation& found() const { return found_; }
  // Another resynchronisation must follow when this version has been applied; nothing: none must.
  // There are three reasons. The range said so. A row that no log row will announce could not be
  // taken, because something before it is blocked. Or there may be such a row, and damage hides
  // which versions the log has given.
  std::optional<Asic::LogVersion> owed() const { return owed_; }

 private:
  // True when a configuration row has decided the key, false when its row was above the limit; a
  // key without a row has none.
  static constexpr std::uint32_t kSalt = 0x9c27f1a3;
  using Decided = Pell::HashMap<FecKey, bool, LoamFec::FecKeyHash<kSalt>>;

  struct Sighting {
    Decided decided;
    std::uint32_t held = 0;  // entries in the ASIC, once the changes on their way are there
    bool sawAll = true;
  };

  struct Addition {
    Asic::UnitId unitId;
    FecEntry entry;
    Asic::LogVersion version;
  };

  bool lookAtRows(StepBudget& budget);
  bool lookAtRowsOf(Asic::UnitId unitId, ConfigMap& rows, StepBudget& budget);
  void lookAt(Asic::UnitId unitId, const ConfigRow& row);
  bool decides(Asic::UnitId unitId, const ConfigRow& row);
  void owe(Asic::LogVersion version);
  bool isLeftOver(Asic::UnitId unitId, const ConfigRow& row, Asic::LogVersion handedOut) const;
  void makeEqual(Asic::UnitId unitId, const ConfigRow& row);
  bool askTheLog(StepBudget& budget);
  bool applyToTheUndecided(const LogRow& row, StepBudget& budget);
  bool removeTheUndecided(Asic::UnitId unitId, StepBudget& budget);
  bool makeRoom();
  bool isDecided(Asic::UnitId unitId, const FecKey& key) const;
  bool removeTheUnseen(StepBudget& budget);
  void add(Asic::UnitId unitId, const ConfigRow& row);
  bool addTheRest(StepBudget& budget);

  const ConfigTables* units_;
  LogMap* log_;
  FecAsic* asic_;
  ResynchronisationRange range_;
  std::map<Asic::UnitId, Sighting> sightings_;
  ConfigTables::const_iterator looked_;  // unit whose rows are looked at
  std::optional<ConfigMap::Iterator> at_;
  bool undecidedKeys_ = false;
  std::uint64_t asked_;                   // log version
  ConfigTables::const_iterator cleared_;  // unit whose unseen keys go
  AsicDriver::Cursor next_ = 0;
  std::deque<Addition> additions_;  // for which a full ASIC has no room yet
  Asic::Resynchronisation found_;
  std::optional<Asic::LogVersion> owed_;
};

}  // namespace Hardware
