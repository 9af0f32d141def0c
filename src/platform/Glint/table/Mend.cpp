// SPDX-License-Identifier: Apache-2.0

// The part of a table that makes a damaged file usable again. What a mount tolerates or mends is
// left to the mount (Table.cpp); here is what it refuses. The slots are believed, each for itself,
// and the index is rebuilt from them; readers scan the slots meanwhile, as after a kill within a
// rebuilding.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "Glint/MountInfo.h"
#include "format/Scratchpad.h"
#include "table/Inspection.h"
#include "table/Table.h"

namespace Glint {

namespace {

// Of a scratchpad whose live copy is damaged: the value before the last one; 0 if that is gone too.
std::uint64_t scratchpadBefore(const ScratchpadSlot& pad) {
  const Seq seq(loadRelaxed(pad.seq));
  if (!seq.valid() || !seq.live() || seq.version() < 2) {
    return 0;
  }
  const Seq before(seq.version() - 1, true, seq.copy() ^ 1U);
  std::uint64_t value = 0;
  return scratchpadChecksOut(pad, before, value) ? value : 0;
}

}  // namespace

void Table::mend(const std::shared_ptr<RootFolder>& root, const Pell::String& fileName,
                 const TableLayout& layout, std::uint64_t scratchpadFloor) {
  const std::shared_ptr<WriterLock> lock = root->lockForWriting();
  RootFolder::File file = root->open(fileName, RootFolder::Access::write);
  if (!file.fd) {
    return;
  }
  const std::shared_ptr<Table> table =
      map(file, root->filePath(fileName), layout, Mapping::Access::write);
  table->writerLock_ = lock;
  table->file_ = std::move(file.fd);
  table->mendStructure(scratchpadFloor);
}

void Table::mendStructure(std::uint64_t scratchpadFloor) {
  const Inspection found = inspect(view_);
  if (found.structure.empty()) {
    return;
  }
  if (!found.scratchpadGood) {
    mendScratchpad(scratchpadFloor);
  }
  const Counter inUse(loadRelaxed(view_.header().slotsInUse));
  slotsInUse_ = view_.canBeInUse(inUse) ? inUse.value() : findSlotsInUse();
  storeRelease(view_.header().slotsInUse, Counter::of(slotsInUse_).word());
  generation_ = generation();
  rebuildIndex();
}

// Nothing is known of the seq's version, or it is kept: a reader only asks whether it has changed.
void Table::mendScratchpad(std::uint64_t floor) {
  ScratchpadSlot& pad = view_.header().scratchpad;
  const std::uint64_t value = std::max(floor, scratchpadBefore(pad));
  const Seq seq(loadRelaxed(pad.seq));
  publishScratchpad(pad, seq.valid() && seq.live() ? seq : Seq(1, true, 0), value);
}

// Slots are initialised a chunk at a time, and no initialised seq is zero, which is what reads
// where nothing has been reserved: the last chunk with a seq in it is the last one in use, whatever
// became of those before it. Read from the file, because a look at such memory would reserve it.
std::uint32_t Table::findSlotsInUse() const {
  const FixedHeader& fixed = view_.fixed();
  std::vector<std::uint64_t> words(std::size_t{kChunkSlots} * fixed.slotBytes / 8);
  for (std::uint32_t end = fixed.slotCount; end > 0;) {
    const std::uint32_t first = (end - 1) / kChunkSlots * kChunkSlots;
    const std::uint32_t count = end - first;
    const std::uint64_t at = view_.geometry().slotsAt + std::uint64_t{fixed.slotBytes} * first;
    const std::size_t bytes = std::size_t{count} * fixed.slotBytes;
    std::fill(words.begin(), words.end(), 0);
    if (::pread(file_.get(), words.data(), bytes, static_cast<off_t>(at)) < 0) {
      throw ZevGlint::MountException(
          fmt::format("{}: cannot read its slots: {}", filePath_, std::strerror(errno)));
    }
    for (std::uint32_t slot = 0; slot < count; ++slot) {
      if (Seq(words[std::size_t{slot} * fixed.slotBytes / 8]).valid()) {
        return end;
      }
    }
    end = first;
  }
  return 0;
}

}  // namespace Glint
