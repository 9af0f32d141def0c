// SPDX-License-Identifier: Apache-2.0

// The builders and their printed form are one table, kept in step by hand: what print() gives is
// the builder's call. The generator draws everything from one stream of numbers, so that a seed
// gives the same sequence everywhere.

#include "Operations.h"

#include <array>
#include <utility>

#include <fmt/format.h>

namespace fec_model {

namespace {

// Numbers from a seed (the splitmix64 sequence).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  // Below the bound.
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(next() % bound); }
  std::uint32_t between(std::uint32_t lowest, std::uint32_t highest) {
    return lowest + below(highest - lowest + 1);
  }
  bool oneIn(std::uint32_t times) { return below(times) == 0; }

 private:
  std::uint64_t next() {
    state_ += 0x9e3779b97f4a7c15;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
  }

  std::uint64_t state_;
};

constexpr std::array kEveryKind = {
    Kind::write,      Kind::writeMany,     Kind::remove,     Kind::removeAll, Kind::resource,
    Kind::dependency, Kind::newDependency, Kind::generation, Kind::turn,      Kind::run,
    Kind::report,     Kind::reset,         Kind::clear,      Kind::update,    Kind::hooks,
    Kind::openWalk,   Kind::openWalkFrom,  Kind::stepWalk,   Kind::makeUnit,  Kind::restart,
};

// How often each kind is drawn, in the order of kEveryKind. Episodes differ in temper: what is rare
// in one is frequent in another, so that rare things also meet each other.
using Weights = std::array<std::uint32_t, kEveryKind.size()>;
//                            wr  wM rem rA res dep nDp gen trn run rep rst clr upd hk oW oWF stW mU
//                            re
constexpr Weights kEveryday = {30, 1, 12, 3, 12, 6, 3, 2, 10, 12, 10, 1, 1, 2, 3, 2, 2, 12, 1, 1};
constexpr Weights kResources = {20, 1, 4, 1, 30, 2, 1, 2, 6, 10, 10, 1, 1, 4, 4, 1, 1, 4, 1, 2};
constexpr Weights kWaiting = {30, 2, 14, 6, 6, 14, 8, 2, 8, 6, 4, 1, 1, 1, 2, 1, 1, 4, 1, 1};
constexpr Weights kWholeTables = {24, 1, 6, 14, 6, 4, 2, 1, 6, 8, 12, 5, 4, 1, 1, 2, 2, 6, 2, 4};
constexpr Weights kIterations = {30, 1, 14, 2, 4, 2, 1, 1, 8, 10, 8, 1, 1, 1, 1, 6, 6, 40, 1, 1};
constexpr std::array kTempers = {kEveryday, kEveryday,    kResources,
                                 kWaiting,  kWholeTables, kIterations};

constexpr std::uint32_t kShortestEpisode = 20;
constexpr std::uint32_t kLongestEpisode = 240;

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed), seed_(seed) {}

  Episode everyday() {
    Episode episode = begin(random_.between(1, kUnits));
    episode.start.liveResources = random_.oneIn(3);
    weights_ = kTempers[random_.below(kTempers.size())];
    keys_ = random_.oneIn(3) ? 2 : kKeys;
    extend(episode, random_.between(kShortestEpisode, kLongestEpisode));
    return episode;
  }

  // Begins a few rows below the log's capacity; most reports free a few rows, the last one all.
  Episode logFull() {
    Episode episode = begin(random_.between(1, 2));
    episode.start.logRows = 100'000 - random_.below(8);
    weights_ = kEveryday;
    weights_[at(Kind::writeMany)] = 0;
    weights_[at(Kind::restart)] = 0;
    farBehind_ = episode.start.logRows - 8;
    for (std::uint32_t intf = 1; intf <= kInterfaces; ++intf) {
      episode.operations.push_back(resource(intf, 3, intf, Notice::published));
    }
    for (int rounds = 0; rounds < 4; ++rounds) {
      extend(episode, 20);
      episode.operations.push_back(writeMany(0, 0, 0, 24));
      episode.operations.push_back(run());
    }
    farBehind_ = 0;
    episode.operations.push_back(report(Report::behind, 0));
    episode.operations.push_back(restart(3, 0));
    extend(episode, 10);
    return episode;
  }

  // Requests fill the queue up to about where clients are suspended, and let it drain again.
  Episode suspend() {
    Episode episode = begin(1);
    auto& operations = episode.operations;
    operations.push_back(resource(1, 0, 1, Notice::published));
    operations.push_back(writeMany(0, 0, 1, random_.between(9'990, 10'010)));
    weights_ = kEveryday;
    for (const Kind unwanted : {Kind::writeMany, Kind::resource, Kind::restart, Kind::run}) {
      weights_[at(unwanted)] = 0;
    }
    extend(episode, 20);
    operations.push_back(writeMany(0, 0, 1, 20));
    operations.push_back(resource(1, 3, 7, Notice::silent));
    const std::uint32_t turnsToResume = random_.between(3, 5);
    for (std::uint32_t turns = 0; turns < turnsToResume; ++turns) {
      operations.push_back(generation());
      operations.push_back(turn());
    }
    extend(episode, 10);
    return episode;
  }

  // Clients are let go on by the very last commit of a turn, or one commit to either side.
  Episode resume() {
    constexpr std::uint32_t kLastCommitOfThirdTurn = 7'999 + 3 * 1'024 - 1;
    Episode episode = begin(1);
    episode.operations = {resource(1, 3, 7, Notice::silent),
                          writeMany(0, 0, 1, kLastCommitOfThirdTurn)};
    if (random_.oneIn(2)) {
      episode.operations.push_back(write(0, 0, random_.oneIn(2) ? 0 : 1, 1));
    }
    episode.operations.insert(episode.operations.end(), {turn(), turn(), turn(), turn(), run()});
    return episode;
  }

 private:
  static std::size_t at(Kind kind) { return static_cast<std::size_t>(kind); }

  Episode begin(std::uint32_t units) {
    units_ = units;
    return {seed_, {units, 0, false}, {}};
  }

  void extend(Episode& episode, std::uint32_t operations) {
    for (std::uint32_t made = 0; made < operations; ++made) {
      episode.operations.push_back(operation());
    }
  }

  Kind kind() {
    std::uint32_t sum = 0;
    for (const std::uint32_t weight : weights_) {
      sum += weight;
    }
    std::uint32_t drawn = random_.below(sum);
    std::size_t found = 0;
    while (drawn >= weights_[found]) {
      drawn -= weights_[found++];
    }
    return kEveryKind[found];
  }

  Operation operation() {
    switch (const Kind drawn = kind()) {
      case Kind::write:
        return request(write(unit(), key(), interface(), ++mark_));
      case Kind::writeMany:
        return request(writeMany(unit(), key(), interface(), random_.between(2, 24)));
      case Kind::remove:
        return request(remove(unit(), key()));
      case Kind::removeAll:
        return request(removeAll(unit()));
      default:
        return drawn < Kind::generation ? waitedFor(drawn)
               : drawn < Kind::reset    ? turns(drawn)
                                        : wholeTable(drawn);
    }
  }

  Operation request(const Operation& made) {
    const std::uint32_t dependency =
        random_.oneIn(4) ? random_.between(1, kDependencies + kRecentHandles) : 0;
    const std::uint32_t reactions = farBehind_ == 0 ? 5 : 4;  // the last one reports everything
    const auto reaction =
        random_.oneIn(6) ? static_cast<Reaction>(random_.between(1, reactions)) : Reaction::none;
    return made.after(dependency).then(reaction);
  }

  Operation waitedFor(Kind drawn) {
    if (drawn == Kind::newDependency) {
      return newDependency(random_.between(1, kDependencies));
    }
    if (drawn == Kind::dependency) {
      const std::uint32_t state = random_.oneIn(3) ? random_.below(6) : 3;
      return dependency(random_.between(1, kDependencies), state);
    }
    const std::uint32_t state = random_.oneIn(3) ? random_.below(6) : 3;
    const Notice notice =
        random_.oneIn(4) ? static_cast<Notice>(random_.below(2)) : Notice::published;
    return resource(random_.between(1, kInterfaces), state, random_.between(1, 5), notice);
  }

  Operation turns(Kind drawn) {
    if (drawn == Kind::report && farBehind_ != 0) {
      return report(Report::behind, farBehind_ + random_.below(16));
    }
    switch (drawn) {
      case Kind::generation:
        return generation();
      case Kind::turn:
        return turn();
      case Kind::run:
        return run();
      default:
        break;
    }
    const std::uint32_t which = random_.below(16);
    if (which == 0) {
      return report(Report::beyond, random_.between(1, 3));
    }
    return which < 5 ? report(Report::again, random_.below(4))
                     : report(Report::behind, random_.oneIn(2) ? 0 : random_.below(12));
  }

  Operation wholeTable(Kind drawn) {
    switch (drawn) {
      case Kind::reset:
        return reset(unit());
      case Kind::clear:
        return clear(unit(), random_.oneIn(2));
      case Kind::update:
        return update(unit(), key());
      case Kind::hooks:
        return hooks(unit(), random_.oneIn(2), random_.oneIn(2),
                     static_cast<Reaction>(random_.below(5)));
      case Kind::openWalk:
        return openWalk(random_.below(kWalks), unit());
      case Kind::openWalkFrom:
        return openWalkFrom(random_.below(kWalks), unit(), key());
      case Kind::stepWalk:
        return stepWalk(random_.below(kWalks), random_.between(1, 4));
      case Kind::makeUnit:
        return makeUnit(unit());
      default:
        return restart(random_.oneIn(3) ? random_.below(1U << kUnits) : (1U << kUnits) - 1,
                       random_.oneIn(5) ? random_.below(1U << kUnits) : 0);
    }
  }

  std::uint32_t unit() { return random_.below(units_); }
  std::uint32_t key() { return random_.below(keys_); }
  std::uint32_t interface() { return random_.below(kInterfaces + 1); }

  Random random_;
  std::uint64_t seed_;
  Weights weights_{};
  std::uint32_t units_ = 1;
  std::uint32_t keys_ = kKeys;
  std::uint32_t mark_ = 0;
  std::uint32_t farBehind_ = 0;  // how far reports are behind, about; 0: as they come
};

constexpr std::array kReactionNames = {"none",       "writeSame", "removeSame",
                                       "writeOther", "removeAll", "reportAll"};
constexpr std::array kNoticeNames = {"silent", "otherAttribute", "published"};
constexpr std::array kReportNames = {"behind", "again", "beyond"};

std::string reactionName(Reaction reaction) {
  return std::string("Reaction::") + kReactionNames[static_cast<std::size_t>(reaction)];
}

const char* truth(bool value) { return value ? "true" : "false"; }

std::string printCall(const Operation& made) {
  switch (made.kind) {
    case Kind::write:
      return fmt::format("write({}, {}, {}, {})", made.unit, made.key, made.intf, made.value);
    case Kind::writeMany:
      return fmt::format("writeMany({}, {}, {}, {})", made.unit, made.key, made.intf, made.count);
    case Kind::remove:
      return fmt::format("remove({}, {})", made.unit, made.key);
    case Kind::removeAll:
      return fmt::format("removeAll({})", made.unit);
    case Kind::resource:
      return fmt::format("resource({}, {}, {}, Notice::{})", made.intf, made.value, made.count,
                         kNoticeNames[made.mode]);
    case Kind::dependency:
      return fmt::format("dependency({}, {})", made.key, made.value);
    case Kind::newDependency:
      return fmt::format("newDependency({})", made.key);
    case Kind::generation:
      return "generation()";
    case Kind::turn:
      return "turn()";
    case Kind::run:
      return "run()";
    case Kind::report:
      return fmt::format("report(Report::{}, {})", kReportNames[made.mode], made.count);
    case Kind::reset:
      return fmt::format("reset({})", made.unit);
    case Kind::clear:
      return fmt::format("clear({}, {})", made.unit, truth(made.value != 0));
    case Kind::update:
      return fmt::format("update({}, {})", made.unit, made.key);
    case Kind::hooks:
      return fmt::format("hooks({}, {}, {}, {})", made.unit,
                         truth((made.mode & kHookLogsFailures) != 0),
                         truth((made.mode & kHookMarks) != 0), reactionName(made.reaction));
    case Kind::openWalk:
      return fmt::format("openWalk({}, {})", made.count, made.unit);
    case Kind::openWalkFrom:
      return fmt::format("openWalkFrom({}, {}, {})", made.count, made.unit, made.key);
    case Kind::stepWalk:
      return fmt::format("stepWalk({}, {})", made.count, made.value);
    case Kind::makeUnit:
      return fmt::format("makeUnit({})", made.unit);
    case Kind::restart:
      return fmt::format("restart({}, {})", made.value, made.count);
  }
  return {};
}

}  // namespace

Operation Operation::after(std::uint32_t dependency) const {
  Operation changed = *this;
  changed.dependsOn = dependency;
  return changed;
}

Operation Operation::then(Reaction what) const {
  Operation changed = *this;
  changed.reaction = what;
  return changed;
}

Operation write(std::uint32_t unit, std::uint32_t key, std::uint32_t intf, std::uint32_t mark) {
  return {.kind = Kind::write, .unit = unit, .key = key, .intf = intf, .value = mark};
}

Operation writeMany(std::uint32_t unit, std::uint32_t key, std::uint32_t intf,
                    std::uint32_t count) {
  return {.kind = Kind::writeMany, .unit = unit, .key = key, .intf = intf, .count = count};
}

Operation remove(std::uint32_t unit, std::uint32_t key) {
  return {.kind = Kind::remove, .unit = unit, .key = key};
}

Operation removeAll(std::uint32_t unit) { return {.kind = Kind::removeAll, .unit = unit}; }

Operation resource(std::uint32_t intf, std::uint32_t state, std::uint32_t destination,
                   Notice notice) {
  return {.kind = Kind::resource,
          .intf = intf,
          .value = state,
          .count = destination,
          .mode = static_cast<std::uint8_t>(notice)};
}

Operation dependency(std::uint32_t slot, std::uint32_t state) {
  return {.kind = Kind::dependency, .key = slot, .value = state};
}

Operation newDependency(std::uint32_t slot) { return {.kind = Kind::newDependency, .key = slot}; }

Operation generation() { return {.kind = Kind::generation}; }
Operation turn() { return {.kind = Kind::turn}; }
Operation run() { return {.kind = Kind::run}; }

Operation report(Report which, std::uint32_t count) {
  return {.kind = Kind::report, .count = count, .mode = static_cast<std::uint8_t>(which)};
}

Operation reset(std::uint32_t unit) { return {.kind = Kind::reset, .unit = unit}; }

Operation clear(std::uint32_t unit, bool releaseResources) {
  return {.kind = Kind::clear, .unit = unit, .value = releaseResources ? 1U : 0U};
}

Operation update(std::uint32_t unit, std::uint32_t key) {
  return {.kind = Kind::update, .unit = unit, .key = key};
}

Operation makeUnit(std::uint32_t unit) { return {.kind = Kind::makeUnit, .unit = unit}; }

Operation restart(std::uint32_t units, std::uint32_t resets) {
  return {.kind = Kind::restart, .value = units, .count = resets};
}

Operation hooks(std::uint32_t unit, bool logsFailures, bool marks, Reaction onNextSuccess) {
  const int mode = (logsFailures ? kHookLogsFailures : 0) | (marks ? kHookMarks : 0);
  return {.kind = Kind::hooks,
          .unit = unit,
          .reaction = onNextSuccess,
          .mode = static_cast<std::uint8_t>(mode)};
}

Operation openWalk(std::uint32_t slot, std::uint32_t unit) {
  return {.kind = Kind::openWalk, .unit = unit, .count = slot};
}

Operation openWalkFrom(std::uint32_t slot, std::uint32_t unit, std::uint32_t key) {
  return {.kind = Kind::openWalkFrom, .unit = unit, .key = key, .count = slot};
}

Operation stepWalk(std::uint32_t slot, std::uint32_t steps) {
  return {.kind = Kind::stepWalk, .value = steps, .count = slot};
}

std::optional<Operation> followUp(Reaction reaction, std::uint32_t unit, std::uint32_t key) {
  constexpr std::uint32_t kMark = 5000;
  switch (reaction) {
    case Reaction::none:
      return std::nullopt;
    case Reaction::writeSame:
      return write(unit, key, key % (kInterfaces + 1), kMark + key);
    case Reaction::removeSame:
      return remove(unit, key);
    case Reaction::writeOther:
      return write(unit, (key + 1) % kKeys, 0, kMark + 1000 + key);
    case Reaction::removeAll:
      return removeAll(unit);
    case Reaction::reportAll:
      return report(Report::behind, 0);
  }
  return std::nullopt;
}

Episode makeEpisode(std::uint64_t seed) {
  switch (seed % kBoundaryEvery) {
    case 0:
      return Generator(seed).logFull();
    case 1:
      return Generator(seed).suspend();
    case 2:
      return Generator(seed).resume();
    default:
      return Generator(seed).everyday();
  }
}

std::string print(const Operation& operation) {
  std::string text = printCall(operation);
  if (operation.dependsOn != 0) {
    text += fmt::format(".after({})", operation.dependsOn);
  }
  if (operation.reaction != Reaction::none && operation.kind != Kind::hooks) {
    text += fmt::format(".then({})", reactionName(operation.reaction));
  }
  return text;
}

std::string print(const Episode& episode) {
  std::string text = fmt::format(
      "// seed {:#x}, {} operations\n{{.units = {}, .logRows = {}, .liveResources = {}}},\n{{\n",
      episode.seed, episode.operations.size(), episode.start.units, episode.start.logRows,
      truth(episode.start.liveResources));
  for (const Operation& operation : episode.operations) {
    text += "    " + print(operation) + ",\n";
  }
  return text + "}";
}

std::vector<Operation> simpler(const Operation& operation) {
  std::vector<Operation> variants;
  const auto tryWith = [&](auto Operation::*field, auto value) {
    if (operation.*field != value) {
      variants.push_back(operation);
      variants.back().*field = value;
    }
  };
  if (operation.kind == Kind::writeMany) {
    variants.push_back(write(operation.unit, operation.key, operation.intf, 1)
                           .after(operation.dependsOn)
                           .then(operation.reaction));
    tryWith(&Operation::count, operation.count / 2);
    tryWith(&Operation::count, operation.count - 1);
    return variants;
  }
  tryWith(&Operation::reaction, Reaction::none);
  tryWith(&Operation::dependsOn, 0U);
  tryWith(&Operation::unit, 0U);
  tryWith(&Operation::intf, operation.kind == Kind::resource ? 1U : 0U);
  if (operation.intf > 1) {
    tryWith(&Operation::intf, 1U);
  }
  const bool isSlot = operation.kind == Kind::dependency || operation.kind == Kind::newDependency;
  tryWith(&Operation::key, isSlot ? 1U : 0U);
  if (operation.kind == Kind::write || operation.kind == Kind::stepWalk) {
    tryWith(&Operation::value, 1U);
  }
  if (operation.kind == Kind::resource || operation.kind == Kind::dependency) {
    tryWith(&Operation::value, 3U);
  }
  if (operation.kind != Kind::resource && operation.count > 0) {
    tryWith(&Operation::count, 0U);
  }
  if (operation.kind == Kind::hooks) {
    tryWith(&Operation::mode, std::uint8_t{0});
  }
  return variants;
}

}  // namespace fec_model
