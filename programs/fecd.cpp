// SPDX-License-Identifier: Apache-2.0

// fecd: the reference forwarding agent. Its one command so far replays what a Linux router's kernel
// prints of its links and next hops through the FEC table.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "CommandLine.h"
#include "Glint/MountInfo.h"
#include "captures/Snapshot.h"
#include "hardware/LogDrivenHardware.h"
#include "hardware/SimulatedAsic.h"
#include "replay/ReportText.h"
#include "replay/Run.h"

namespace {

// Exit codes.
constexpr int kDone = 0;
constexpr int kNotDone = 1;   // a request failed, or hardware and table differ
constexpr int kBadInput = 2;  // nothing was changed
constexpr int kNoState = 3;   // the state folder cannot be used

struct Options {
  std::string stateFolder = Programs::kDefaultStateFolder;
  std::vector<std::string> linkFiles;
  std::vector<std::string> nextHopFiles;
  std::vector<std::uint16_t> units = {0};
  std::vector<std::string> flaps;
  std::uint64_t killAfter = 0;
  bool reset = false;
  bool json = false;
};

constexpr const char* kReplayHelp =
    "Make the FEC table equal to snapshots of a Linux router.\n\n"
    "Each link that is up gets a destination. Each next hop becomes an entry: its id is the key,\n"
    "its dev is the interface, and its gateway is kept in the entry's opaque fields. Next hops\n"
    "that are not FEC entries (groups, blackholes, ...) are counted by kind. A next hop waits if\n"
    "its interface is down or not among the links, and the report says so. Several snapshots are\n"
    "applied one after the other: give --links and --nexthops once for each snapshot, in order.\n\n"
    "fecd first restores the entries that an earlier fecd left in the state folder. With --flap,\n"
    "links go down and up between the snapshots, and every entry that uses them is driven again.\n"
    "With --kill-after, fecd is killed in the middle of its work and started again, and its\n"
    "answers are compared with the entries that it then finds.";

constexpr const char* kReplayFooter =
    "Example:\n"
    "  ip -j link > links.json; ip -j nexthop > nexthops.json\n"
    "  fecd replay --links links.json --nexthops nexthops.json\n"
    "  fecctl show fec\n\n"
    "Exit codes:\n"
    "  0  The replay is done.\n"
    "  1  A request failed, an answered request was lost, or hardware and table differ.\n"
    "  2  The input or the usage was wrong. Nothing was changed.\n"
    "  3  The state folder cannot be used.";

// Bad input that is found before anything is changed.
[[noreturn]] void refuse(const std::string& what) { throw Captures::InputError(what); }

std::vector<Asic::UnitId> unitsOf(const Options& options) {
  std::vector<Asic::UnitId> units;
  for (const std::uint16_t number : options.units) {
    const Asic::UnitId unit(number);
    if (std::find(units.begin(), units.end(), unit) != units.end()) {
      refuse(fmt::format("--units: {} is given twice; name each unit once", number));
    }
    units.push_back(unit);
  }
  constexpr std::uint32_t kMaxUnits = LoamFec::FecTableConstants::kMaxUnits;
  if (units.size() > kMaxUnits) {
    refuse(fmt::format("--units: {} units; give at most {}", units.size(), kMaxUnits));
  }
  return units;
}

std::vector<Wirex::IntfId> flapsOf(const Options& options,
                                   const std::vector<Replay::Plan::LabelledSnapshot>& all) {
  std::vector<Wirex::IntfId> flaps;
  for (const std::string& name : options.flaps) {
    const auto isIt = [&name](const Captures::Link& link) { return link.name == name; };
    const bool known = std::any_of(all.begin(), all.end(), [&](const auto& labelled) {
      const auto& links = labelled.snapshot.links;
      return std::any_of(links.begin(), links.end(), isIt);
    });
    if (!known) {
      refuse(fmt::format("--flap: {} is not among the links; name one that the files have", name));
    }
    flaps.push_back(Wirex::IntfId::fromName(name));
  }
  return flaps;
}

Replay::Plan planOf(const Options& options) {
  if (options.linkFiles.size() != options.nextHopFiles.size()) {
    refuse(fmt::format("{} --links but {} --nexthops; give one of each for every snapshot",
                       options.linkFiles.size(), options.nextHopFiles.size()));
  }
  Replay::Plan plan;
  plan.stateFolder = options.stateFolder;
  plan.units = unitsOf(options);
  plan.makeHardware =
      Hardware::drivenByTheLog([] { return std::make_unique<Hardware::SimulatedAsic>(); });
  plan.reset = options.reset;
  plan.showProgress = !options.json;
  for (std::size_t i = 0; i < options.linkFiles.size(); ++i) {
    plan.snapshots.push_back(
        {options.nextHopFiles[i],
         Captures::readSnapshot(options.linkFiles[i], options.nextHopFiles[i])});
  }
  plan.flaps = flapsOf(options, plan.snapshots);
  if (options.killAfter > 0) {
    plan.killAfter = options.killAfter;
  }
  return plan;
}

int replay(const Options& options) {
  const Replay::Outcome outcome = Replay::carryOut(planOf(options));
  std::cout << (options.json ? outcomeJson(outcome) : outcomeText(outcome)) << std::flush;
  return outcome.good() ? kDone : kNotDone;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("fecd: the reference forwarding agent of the FEC table.", "fecd");
  app.require_subcommand(1);
  app.set_version_flag("--version", LOAMFEC_VERSION);
  CLI::App* command = app.add_subcommand("replay", kReplayHelp);
  command->footer(kReplayFooter);
  command->add_option("--links", options.linkFiles, "Output of `ip -j link`")
      ->required()
      ->type_name("FILE");
  command->add_option("--nexthops", options.nextHopFiles, "Output of `ip -j nexthop`")
      ->required()
      ->type_name("FILE");
  command
      ->add_option("--state", options.stateFolder, "State folder; it is made if it does not exist")
      ->type_name("DIR")
      ->capture_default_str();
  command->add_option("--units", options.units, "Unit (ASIC) numbers; each gets the same entries")
      ->delimiter(',')
      ->type_name("N[,N...]")
      ->capture_default_str();
  command->add_flag("--reset", options.reset, "Begin with empty tables");
  command
      ->add_option("--flap", options.flaps,
                   "Take these links down and up again after each snapshot but the last")
      ->delimiter(',')
      ->type_name("IFNAME[,...]");
  command->add_option("--kill-after", options.killAfter, "Kill fecd after this many answers")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 32U))
      ->type_name("ANSWERS");
  command->add_flag("--json", options.json, "Print the report as JSON");
  if (const auto exitCode = Programs::parseCommandLine(app, argc, argv, kBadInput)) {
    return *exitCode;
  }
  return replay(options);
}

}  // namespace

int main(int argc, char** argv) {
  Programs::holdClosedStreams();
  try {
    return run(argc, argv);
  } catch (const Captures::InputError& error) {
    std::cerr << "fecd: " << error.what() << '\n';
    return kBadInput;
  } catch (const ZevGlint::MountException& error) {
    std::cerr << "fecd: " << error.what() << '\n';
    return kNoState;
  } catch (const std::exception& error) {
    std::cerr << "fecd: " << error.what() << '\n';
    return kNotDone;
  }
}
