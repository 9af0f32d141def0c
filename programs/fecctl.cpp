// SPDX-License-Identifier: Apache-2.0

// fecctl: the operator's tool. It reads the state folder and needs no running agent, nor does it
// disturb one. Only `repair --yes` writes, under the writer lock.

#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "CommandLine.h"
#include "Glint/MountInfo.h"
#include "Pell/Exceptions.h"
#include "captures/Snapshot.h"
#include "tools/FecTableView.h"
#include "tools/StateCheck.h"
#include "tools/StateRepair.h"

namespace {

// Exit codes.
constexpr int kDone = 0;
constexpr int kDiffers = 1;   // the table is not what it was compared with
constexpr int kBadInput = 2;  // usage, a file to compare with, or nowhere to print
constexpr int kNoState = 3;   // the state folder cannot be read
// Of check and repair, beside usage.
constexpr int kFindings = 1;
constexpr int kToDo = 1;
constexpr int kCannot = 2;

constexpr std::size_t kRowsShown = 20;
constexpr std::size_t kLinesShown = 200;  // of findings, notes and steps
constexpr std::size_t kDifferencesShown = 20;

struct Options {
  std::string stateFolder = Programs::kDefaultStateFolder;
  std::uint16_t unit = 0;
  std::size_t limit = kRowsShown;
  std::string linksFile;
  std::string nextHopsFile;
  std::size_t lines = kLinesShown;
  bool json = false;
  bool yes = false;
};

constexpr const char* kShowFecFooter =
    "Examples:\n"
    "  fecctl show fec\n"
    "  fecctl show fec --limit 0 --json\n"
    "  fecctl show fec --compare-links links.json --compare-nexthops nexthops.json\n\n"
    "Exit codes:\n"
    "  0  The entries were shown; if compared, they are equal.\n"
    "  1  The table differs from the snapshot.\n"
    "  2  The input or the usage was wrong, or the output cannot be written.\n"
    "  3  The state folder cannot be read.";

constexpr const char* kCheckFooter =
    "The check looks at every table alone (header, slots, chains, checksums, counts) and at the\n"
    "tables together: it compares the configuration rows with the log, the log with its last\n"
    "version, and the group log and the applied versions with the log. It changes nothing, and a\n"
    "running agent does not notice it.\n\n"
    "A finding is a state that no kill of an agent leaves: damage, or a fault in a program. A\n"
    "note is a state that a kill may leave, or damage that is out of use already. If there are\n"
    "only notes, nothing is wrong, and the next start deals with them.\n\n"
    "Examples:\n"
    "  fecctl check\n"
    "  fecctl check --state /dev/shm/loam-fec --json | jq -r .verdict\n\n"
    "Exit codes:\n"
    "  0  The state is clean. There may be notes.\n"
    "  1  There are findings.\n"
    "  2  The state could not be checked: there is no state folder, there is no permission or no\n"
    "     memory to read it, or an agent changed the tables during every look. The usage was\n"
    "     wrong, or the output cannot be written.";

constexpr const char* kRepairFooter =
    "Without --yes, the repair shows its steps and changes nothing. With --yes, it takes the\n"
    "writer lock, so that no agent can start meanwhile. It then\n"
    "  - keeps a copy of each damaged file beside it, as <file>.damaged-1, and tells its name;\n"
    "  - drops rows whose checksum does not match, and tells their key and version;\n"
    "  - builds damaged indexes anew from the rows;\n"
    "  - sets aside each file whose header cannot be used: an empty table takes its place;\n"
    "  - finishes changes that a kill cut short; removes deleted rows that have no log row;\n"
    "  - drops log rows that contradict the configuration.\n"
    "The next start of fecd brings the hardware in line with the remaining rows. An entry whose\n"
    "row was dropped leaves the hardware then, until its client writes it again.\n\n"
    "Examples:\n"
    "  fecctl repair            # shows the steps\n"
    "  fecctl repair --yes && fecctl check\n\n"
    "Exit codes:\n"
    "  0  There was nothing to repair, or the repair is done.\n"
    "  1  There is something to repair; --yes repairs it.\n"
    "  2  The repair is not possible: an agent uses the folder (the message names it), there is\n"
    "     no such folder, or there is no permission or no memory. The usage was wrong, or the\n"
    "     output cannot be written.";

int check(const Options& options) {
  const Tools::StateReport report = Tools::checkState(options.stateFolder);
  std::cout << (options.json ? reportJson(report) : reportText(report, options.lines));
  if (!report.findings.empty()) {
    return kFindings;
  }
  return report.cannotTell.empty() ? kDone : kCannot;
}

int repair(const Options& options) {
  using Outcome = Tools::RepairReport::Outcome;
  const Tools::RepairReport report = options.yes ? Tools::carryOutRepair(options.stateFolder)
                                                 : Tools::planRepair(options.stateFolder);
  std::cout << (options.json ? repairJson(report) : repairText(report, options.lines));
  if (report.outcome == Outcome::cannot) {
    return kCannot;
  }
  return report.outcome == Outcome::planned ? kToDo : kDone;
}

// Whatever check or repair throws ends with kCannot, not with an exit code of show.
int upkeep(int (*command)(const Options&), const Options& options) {
  try {
    return command(options);
  } catch (const std::exception& error) {
    std::cerr << "fecctl: " << error.what() << '\n';
    return kCannot;
  }
}

int printComparison(const Tools::FecTableView& view, const Options& options) {
  const Tools::Comparison comparison =
      compare(view, Captures::readSnapshot(options.linksFile, options.nextHopsFile));
  std::size_t shown = 0;
  for (const std::string& difference : comparison.differences) {
    if (shown++ == kDifferencesShown) {
      std::cout << "... " << comparison.differences.size() - kDifferencesShown << " more\n";
      break;
    }
    std::cout << difference << '\n';
  }
  std::cout << "compared with " << options.nextHopsFile << ": " << comparison.equal << " equal, "
            << comparison.differences.size() << " different, " << comparison.waiting
            << " waiting for an interface\n";
  return comparison.differences.empty() ? kDone : kDiffers;
}

int showFec(const Options& options) {
  const Tools::FecTableView view =
      Tools::readFecTable(options.stateFolder, Asic::UnitId(options.unit));
  std::cout << (options.json ? fecTableJson(view) : fecTableText(view, options.limit));
  return options.nextHopsFile.empty() ? kDone : printComparison(view, options);
}

void addStateOption(CLI::App& command, Options& options) {
  command.add_option("--state", options.stateFolder, "State folder")
      ->type_name("DIR")
      ->capture_default_str();
}

CLI::App* addShowFec(CLI::App& show, Options& options) {
  CLI::App* fec = show.add_subcommand("fec", "Show the committed entries of one unit");
  fec->footer(kShowFecFooter);
  addStateOption(*fec, options);
  fec->add_option("--unit", options.unit, "Unit (ASIC) number")->capture_default_str();
  fec->add_option("--limit", options.limit, "Rows to show; 0 shows all")->capture_default_str();
  CLI::Option* links =
      fec->add_option("--compare-links", options.linksFile, "Output of `ip -j link`")
          ->type_name("FILE");
  CLI::Option* nextHops =
      fec->add_option("--compare-nexthops", options.nextHopsFile, "Output of `ip -j nexthop`")
          ->type_name("FILE");
  links->needs(nextHops);
  nextHops->needs(links);
  CLI::Option* json = fec->add_flag("--json", options.json, "Print all rows as JSON");
  json->excludes(nextHops);
  return fec;
}

// check and repair have the same options, but for --yes.
CLI::App* addUpkeep(CLI::App& app, Options& options, const char* name, const char* help,
                    const char* footer) {
  CLI::App* command = app.add_subcommand(name, help);
  command->footer(footer);
  addStateOption(*command, options);
  command->add_option("--limit", options.lines, "Lines to show of each kind; 0 shows all")
      ->capture_default_str();
  command->add_flag("--json", options.json, "Print everything as JSON");
  return command;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("fecctl: looks into the state of an FEC table, whether its agent runs or not.",
               "fecctl");
  app.require_subcommand(1);
  app.set_version_flag("--version", LOAMFEC_VERSION);
  CLI::App* show = app.add_subcommand("show", "Show what is in the state folder");
  show->require_subcommand(1);
  addShowFec(*show, options);
  const CLI::App* checkCommand = addUpkeep(
      app, options, "check", "Verify a state folder, whether its agent runs or not", kCheckFooter);
  CLI::App* repairCommand =
      addUpkeep(app, options, "repair", "Repair a state folder that no agent uses", kRepairFooter);
  repairCommand->add_flag("--yes", options.yes, "Carry the repair out");
  if (const auto exitCode = Programs::parseCommandLine(app, argc, argv, kBadInput)) {
    return *exitCode;
  }
  if (checkCommand->parsed()) {
    return upkeep(check, options);
  }
  return repairCommand->parsed() ? upkeep(repair, options) : showFec(options);
}

}  // namespace

int main(int argc, char** argv) {
  Programs::holdClosedStreams();
  try {
    const int exitCode = run(argc, argv);
    if (!std::cout.flush()) {
      std::cerr << "fecctl: the output cannot be written\n";
      return kBadInput;
    }
    return exitCode;
  } catch (const Captures::InputError& error) {
    std::cerr << "fecctl: " << error.what() << '\n';
    return kBadInput;
  } catch (const std::exception& error) {
    std::cerr << "fecctl: " << error.what() << '\n';
    return kNoState;
  }
}
