// SPDX-License-Identifier: Apache-2.0

// The verifier: the inspection that a mount makes, over a private read-only mapping of any table
// file, with what a mount tolerates or mends told as well.

#include "offline/Verify.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "folder/Mapping.h"
#include "folder/RootFolder.h"
#include "table/Inspection.h"

namespace Glint {

namespace {

// Maps the file read-only, or says why that cannot be.
Pell::String mapForReading(const Pell::String& path, Mapping& mapping) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    return fmt::format("cannot open it: {}", std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode) || status.st_size < static_cast<off_t>(sizeof(Header))) {
    return "it is not a regular file, or too short for a shared table";
  }
  mapping =
      Mapping::ofFile(file.get(), static_cast<std::size_t>(status.st_size), Mapping::Access::read);
  return mapping ? Pell::String() : fmt::format("cannot map it: {}", std::strerror(errno));
}

void report(const Inspection& found, const TableView& view, Verification& result) {
  const auto add = [&](const Pell::String& finding) { result.findings.push_back(finding); };
  for (const Pell::String& finding : found.structure) {
    add(finding);
  }
  for (const Inspection::DamagedSeq& seq : found.damagedSeqs) {
    result.damagedSlots.push_back({seq.finding, seq.slot});
  }
  for (const Pell::String& finding : found.counters) {
    add(finding);
  }
  for (const Inspection::DamagedRow& row : found.damagedRows) {
    result.damagedSlots.push_back({result.findings.size(), row.slot});
    add(row.finding);
  }
  result.structuralFindings = found.structure.size();
  result.liveRows = found.liveSlots;
  result.freeSlots = static_cast<std::uint32_t>(found.freeSlots.size());
  result.retiredSlots = found.retiredSlots;
  result.slotsInUse = found.slotsInUse;
  result.scratchpad = found.scratchpad;
  const Counter corruptions(loadRelaxed(view.header().corruptionCount));
  result.corruptionCount = corruptions.valid() ? corruptions.value() : 0;
  result.changeInFlight = found.changeInFlight();
  if (!found.clean() || found.indexUnfinished) {
    return;
  }
  // A retired slot that is still linked counts with the retired ones.
  const std::uint32_t accounted =
      found.liveSlots + result.freeSlots + found.retiredSlots + found.deadInFlight;
  if (accounted != found.slotsInUse) {
    add(fmt::format("{} live, {} free and {} retired slots do not add up to {} in use",
                    found.liveSlots, result.freeSlots, found.retiredSlots, found.slotsInUse));
  }
  // A kill can fall between a row's publication and the count of it.
  const std::uint32_t counted = Counter(loadRelaxed(view.header().rowCount)).value();
  const std::uint32_t apart =
      counted > found.liveSlots ? counted - found.liveSlots : found.liveSlots - counted;
  if (apart > 1) {
    add(fmt::format("the header counts {} rows, but there are {}", counted, found.liveSlots));
  }
}

}  // namespace

Verification verifyTable(const Pell::String& filePath) {
  Verification result;
  Mapping mapping;
  Pell::String fault = mapForReading(filePath, mapping);
  FixedHeader sealed{};
  if (fault.empty()) {
    std::memcpy(&sealed, mapping.base(), sizeof sealed);
    fault = sealedHeaderFinding(sealed, mapping.bytes());
  }
  if (!fault.empty()) {
    result.findings.push_back(std::move(fault));
    return result;
  }
  return verifyTable(TableView(mapping.base(), sealed));
}

Verification verifyTable(const TableView& view) {
  Verification result;
  report(inspect(view), view, result);
  return result;
}

}  // namespace Glint
