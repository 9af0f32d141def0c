// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Sequences of operations on an FEC table, as plain values: made from a seed, printed, shrunk.

namespace fec_model {

// Small spaces, so that operations meet each other often.
inline constexpr std::uint32_t kKeys = 10;          // 0 to 9; the table's span all 32 bits
inline constexpr std::uint32_t kInterfaces = 4;     // 1 to 4; 0 is the null interface
inline constexpr std::uint32_t kUnits = 3;          // at most
inline constexpr std::uint32_t kDependencies = 3;   // slots 1 to 3 of operations of another table
inline constexpr std::uint32_t kRecentHandles = 4;  // dependencies beyond the slots: own handles
inline constexpr std::uint32_t kWalks = 3;          // slots of open iterations

enum class Kind : std::uint8_t {
  write,
  writeMany,
  remove,
  removeAll,
  resource,
  dependency,
  newDependency,
  generation,
  turn,
  run,
  report,
  reset,
  clear,
  update,
  hooks,
  openWalk,
  openWalkFrom,
  stepWalk,
  makeUnit,
  restart,
};

// What a response handler, or a helper's success hook, does when it is called.
enum class Reaction : std::uint8_t {
  none,
  writeSame,
  removeSame,
  writeOther,
  removeAll,
  reportAll,
};

// How a resource's change is told to its users.
enum class Notice : std::uint8_t { silent, otherAttribute, published };

// Which version the hardware reports.
enum class Report : std::uint8_t {
  behind,  // the last logged version less `count`
  again,   // the last reported version less `count`
  beyond,  // the last logged version and `count`: refused
};

// One step. Which fields count depends on the kind; the builders below say it.
//
// Kind: value type.
struct Operation {
  Kind kind = Kind::run;
  std::uint32_t unit = 0;
  std::uint32_t key = 0;
  std::uint32_t intf = 0;
  std::uint32_t value = 0;
  std::uint32_t count = 0;
  std::uint32_t dependsOn = 0;
  Reaction reaction = Reaction::none;
  std::uint8_t mode = 0;  // Notice, Report, or hook flags

  // Waits for the operation in slot n (1 to kDependencies), or for the own operation that was
  // requested n - kDependencies requests ago; 0: for none.
  Operation after(std::uint32_t dependency) const;
  // What its response handler does.
  Operation then(Reaction what) const;

  friend bool operator==(const Operation&, const Operation&) = default;
};

// Requests.
Operation write(std::uint32_t unit, std::uint32_t key, std::uint32_t intf, std::uint32_t mark);
// `count` writes of the keys from `key` on, round and round.
Operation writeMany(std::uint32_t unit, std::uint32_t key, std::uint32_t intf, std::uint32_t count);
Operation remove(std::uint32_t unit, std::uint32_t key);
Operation removeAll(std::uint32_t unit);

// What requests wait for. States are those of entry handles, 0 to 5. Live resources have no
// notice: the operation tells their owner's wish.
Operation resource(std::uint32_t intf, std::uint32_t state, std::uint32_t destination,
                   Notice notice);
Operation dependency(std::uint32_t slot, std::uint32_t state);
// Replaces the slot's operation by a new one in state 0.
Operation newDependency(std::uint32_t slot);

// Turns.
Operation generation();  // marks one, runs nothing
Operation turn();        // runs one
Operation run();         // runs all
Operation report(Report which, std::uint32_t count);

// Whole tables.
Operation reset(std::uint32_t unit);
Operation clear(std::uint32_t unit, bool releaseResources);
Operation update(std::uint32_t unit, std::uint32_t key);
Operation makeUnit(std::uint32_t unit);
// Begins again on the same shared tables with the tables of `units` (bits), those in `resets`
// cleared instead of restored.
Operation restart(std::uint32_t units, std::uint32_t resets);

// The helper from now on: whether it has failed writes logged, whether it marks what it finalises,
// and what its next success hook does, once.
Operation hooks(std::uint32_t unit, bool logsFailures, bool marks, Reaction onNextSuccess);

// Iterations.
Operation openWalk(std::uint32_t slot, std::uint32_t unit);
Operation openWalkFrom(std::uint32_t slot, std::uint32_t unit, std::uint32_t key);
Operation stepWalk(std::uint32_t slot, std::uint32_t steps);

inline constexpr std::uint8_t kHookLogsFailures = 1;
inline constexpr std::uint8_t kHookMarks = 2;

// What the reaction of a request comes to: an operation of kind write, remove, removeAll or report.
std::optional<Operation> followUp(Reaction reaction, std::uint32_t unit, std::uint32_t key);

// Where a sequence begins.
struct Start {
  std::uint32_t units = 1;
  std::uint32_t logRows = 0;  // rows of an earlier run that fill the log already
  // Resources are those of the real resource table, which changes them in its own time; otherwise
  // they are scripted and change when an operation says so.
  bool liveResources = false;

  friend bool operator==(const Start&, const Start&) = default;
};

// A sequence and what it starts from; made from the seed alone.
struct Episode {
  std::uint64_t seed = 0;
  Start start;
  std::vector<Operation> operations;
};

// Two boundaries are too far for a sequence of everyday length: every so many seeds there is one
// that begins near a full log, and two that fill the resolver's queue.
inline constexpr std::uint64_t kBoundaryEvery = 128;
Episode makeEpisode(std::uint64_t seed);

// The builder's call, as it can be pasted into a test.
std::string print(const Operation& operation);
std::string print(const Episode& episode);

// Operations that ask for less, those that ask for least first.
std::vector<Operation> simpler(const Operation& operation);

}  // namespace fec_model
