// fecd: the reference forwarding agent. Its one command so far replays what a Linux router's kernel
// prints of its links and next hops through the FEC table.

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Glint/MountInfo.h"
#include "agent/FecAgent.h"
#include "agent/Replay.h"
#include "agent/ReplayInput.h"
#include "agent/ReplayReportText.h"

namespace {

// Exit codes.
constexpr int kDone = 0;
constexpr int kNotDone = 1;   // a request failed, or hardware and table differ
constexpr int kBadInput = 2;  // nothing was changed
constexpr int kNoState = 3;   // the state folder cannot be used

struct Options {
  std::string stateFolder = "/dev/shm/loam-fec";
  std::vector<std::string> linkFiles;
  std::vector<std::string> nextHopFiles;
  std::uint16_t unit = 0;
  bool json = false;
};

constexpr const char* kReplayHelp =
    "Make the FEC table equal to snapshots of a Linux router.\n\n"
    "Each link that is up is given a destination; each next hop becomes an entry: key = its id,\n"
    "interface = its dev, gateway kept in the entry's opaque fields. Next hops that are no FEC\n"
    "entries (groups, blackholes, ...) are counted by kind. A next hop whose interface is down or\n"
    "not among the links waits, and is reported so. Several snapshots are applied one after the\n"
    "other: give --links and --nexthops once for each, in order.";

constexpr const char* kReplayFooter =
    "Example:\n"
    "  ip -j link > links.json; ip -j nexthop > nexthops.json\n"
    "  fecd replay --links links.json --nexthops nexthops.json\n"
    "  fecctl show fec\n\n"
    "Exit codes: 0 done; 1 a request failed, or hardware and table differ; 2 bad input or usage,\n"
    "nothing changed; 3 the state folder cannot be used.";

int replay(const Options& options) {
  if (options.linkFiles.size() != options.nextHopFiles.size()) {
    std::cerr << "fecd: " << options.linkFiles.size() << " --links but "
              << options.nextHopFiles.size()
              << " --nexthops; give one of each for every snapshot\n";
    return kBadInput;
  }
  std::vector<Agent::Snapshot> snapshots;
  for (std::size_t i = 0; i < options.linkFiles.size(); ++i) {
    snapshots.push_back(Agent::readSnapshot(options.linkFiles[i], options.nextHopFiles[i]));
  }
  const Asic::UnitId unit(options.unit);
  Agent::FecAgent agent(options.stateFolder, {unit});
  Agent::Replay replay(agent, unit, !options.json);
  std::vector<Agent::LabelledReport> reports;
  for (std::size_t i = 0; i < snapshots.size(); ++i) {
    reports.push_back(
        {options.nextHopFiles[i], replay.apply(snapshots[i], options.nextHopFiles[i])});
  }
  std::cout << (options.json ? reportJson(reports) : reportTable(reports)) << std::flush;
  const Agent::ReplayReport sum = total(reports);
  return sum.failed == 0 && sum.hardwareEqual ? kDone : kNotDone;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("fecd: the reference forwarding agent of the FEC table.", "fecd");
  app.require_subcommand(1);
  app.set_version_flag("--version", LOAMFEC_VERSION);
  CLI::App* command = app.add_subcommand("replay", kReplayHelp);
  command->footer(kReplayFooter);
  command->add_option("--links", options.linkFiles, "What `ip -j link` printed")
      ->required()
      ->type_name("FILE");
  command->add_option("--nexthops", options.nextHopFiles, "What `ip -j nexthop` printed")
      ->required()
      ->type_name("FILE");
  command->add_option("--state", options.stateFolder, "State folder, made if there is none")
      ->type_name("DIR")
      ->capture_default_str();
  command->add_option("--unit", options.unit, "Unit (ASIC) number")->capture_default_str();
  command->add_flag("--json", options.json, "Print the report as JSON");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kBadInput;
  }
  return replay(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const Agent::InputError& error) {
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
