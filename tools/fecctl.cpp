// fecctl: the operator's tool. It reads the state folder through reader mounts, so it needs no
// running agent and never disturbs one.

#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "Glint/MountInfo.h"
#include "Pell/Exceptions.h"
#include "agent/ReplayInput.h"
#include "tools/FecTableView.h"

namespace {

// Exit codes.
constexpr int kDone = 0;
constexpr int kDiffers = 1;   // the table is not what it was compared with
constexpr int kBadInput = 2;  // usage, or a file to compare with
constexpr int kNoState = 3;   // the state folder cannot be read

constexpr std::size_t kRowsShown = 20;
constexpr std::size_t kDifferencesShown = 20;

struct Options {
  std::string stateFolder = "/dev/shm/loam-fec";
  std::uint16_t unit = 0;
  std::size_t limit = kRowsShown;
  std::string linksFile;
  std::string nextHopsFile;
  bool json = false;
};

constexpr const char* kShowFecFooter =
    "Examples:\n"
    "  fecctl show fec\n"
    "  fecctl show fec --limit 0 --json\n"
    "  fecctl show fec --compare-links links.json --compare-nexthops nexthops.json\n\n"
    "Exit codes: 0 done, and equal if compared; 1 different; 2 bad input or usage; 3 the state\n"
    "folder cannot be read.";

int printComparison(const Tools::FecTableView& view, const Options& options) {
  const Tools::Comparison comparison =
      compare(view, Agent::readSnapshot(options.linksFile, options.nextHopsFile));
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

int run(int argc, char** argv) {
  Options options;
  CLI::App app("fecctl: looks into a FEC table's state, whether its agent runs or not.", "fecctl");
  app.require_subcommand(1);
  app.set_version_flag("--version", LOAMFEC_VERSION);
  CLI::App* show = app.add_subcommand("show", "Show what is in the state folder");
  show->require_subcommand(1);
  CLI::App* fec = show->add_subcommand("fec", "Show the committed entries of one unit");
  fec->footer(kShowFecFooter);
  fec->add_option("--state", options.stateFolder, "State folder")
      ->type_name("DIR")
      ->capture_default_str();
  fec->add_option("--unit", options.unit, "Unit (ASIC) number")->capture_default_str();
  fec->add_option("--limit", options.limit, "Rows to show; 0 for all")->capture_default_str();
  CLI::Option* links =
      fec->add_option("--compare-links", options.linksFile, "What `ip -j link` printed")
          ->type_name("FILE");
  CLI::Option* nextHops =
      fec->add_option("--compare-nexthops", options.nextHopsFile, "What `ip -j nexthop` printed")
          ->type_name("FILE");
  links->needs(nextHops);
  nextHops->needs(links);
  CLI::Option* json = fec->add_flag("--json", options.json, "Print all rows as JSON");
  json->excludes(nextHops);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kBadInput;
  }
  return showFec(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const Agent::InputError& error) {
    std::cerr << "fecctl: " << error.what() << '\n';
    return kBadInput;
  } catch (const std::exception& error) {
    std::cerr << "fecctl: " << error.what() << '\n';
    return kNoState;
  }
}
