// SPDX-License-Identifier: Apache-2.0

#include "StateRows.h"

#include <fmt/format.h>

#include "format/Scratchpad.h"

namespace Tools {

namespace {

bool slotsCanBeTold(const Glint::TableImage& image) {
  return image.view().canBeInUse(Glint::Counter(image.view().header().slotsInUse));
}

// The copy's scratchpad; nothing if it is damaged.
std::optional<std::uint64_t> scratchpadOf(const Glint::TableImage& image) {
  const Glint::ScratchpadSlot& pad = image.view().header().scratchpad;
  const Glint::Seq seq(pad.seq);
  if (!seq.valid() || !seq.live()) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  return scratchpadChecksOut(pad, seq, value) ? std::optional(value) : std::nullopt;
}

StateRows::ConfigRows configRowsOf(const Glint::TableImage& image) {
  StateRows::ConfigRows rows;
  image.forEachGoodRow<ConfigRow>(
      [&](std::uint32_t, const ConfigRow& row) { rows.insert_or_assign(row.key().fecId(), row); });
  return rows;
}

template <typename Row>
Row rowAt(const Glint::TableImage& image, std::uint32_t slot, unsigned copy) {
  return Glint::rowOfWords<Row>(image.view().copyAt(slot, copy) + 1);
}

std::string rowText(const TableFile& file, std::uint32_t slot, unsigned copy) {
  switch (file.role) {
    case TableRole::config: {
      const auto row = rowAt<ConfigRow>(*file.image, slot, copy);
      return fmt::format("FEC {}, version {}", row.key().fecId(), row.version().value());
    }
    case TableRole::log: {
      const auto row = rowAt<LogRow>(*file.image, slot, copy);
      return fmt::format("version {}, unit {}, FEC {}", row.version().value(), row.unitId().value(),
                         row.logEntry().key.fecId());
    }
    case TableRole::groupLog: {
      const auto row = rowAt<Asic::GroupLogRow>(*file.image, slot, copy);
      return fmt::format("sequence {}, version {} of table {}", row.sequence(),
                         row.tableVersion().logVersion().value(),
                         tableIdText(row.tableVersion().tableId().value()));
    }
    case TableRole::applied: {
      const auto row = rowAt<Asic::GroupVersionRow>(*file.image, slot, copy);
      return fmt::format("table {}, version {}", tableIdText(row.tableVersion().tableId().value()),
                         row.tableVersion().logVersion().value());
    }
    case TableRole::other:
      break;
  }
  return "of a kind that is not known here";
}

// What a slot whose seq is impossible held. If one bit has flipped in the seq, some other word with
// one bit changed is the seq that was there, and the row's checksum tells which.
std::string lostText(const TableFile& file, std::uint32_t slot) {
  const Glint::TableView& view = file.image->view();
  const std::uint64_t word = *view.slot(slot);
  bool mayHaveBeenDead = false;
  for (unsigned bit = 0; bit < 64; ++bit) {
    const Glint::Seq before(word ^ std::uint64_t{1} << bit);
    if (before.valid() && before.live() && view.rowChecksOut(slot, before)) {
      return "it held " + rowText(file, slot, before.copy());
    }
    mayHaveBeenDead = mayHaveBeenDead || (before.valid() && !before.live());
  }
  return mayHaveBeenDead
             ? "it held no row"
             : "as far as it can be read, it held " + rowText(file, slot, Glint::Seq(word).copy());
}

std::string damagedSlotText(const TableFile& file, std::uint32_t slot) {
  const Glint::Seq seq(*file.image->view().slot(slot));
  if (!seq.possible()) {
    return fmt::format("slot {}: impossible seq {:#018x}; {}", slot, seq.word(),
                       lostText(file, slot));
  }
  return fmt::format("slot {}: the row's checksum does not match; as far as it can be read: {}",
                     slot, rowText(file, slot, seq.copy()));
}

}  // namespace

std::string tableIdText(std::uint32_t tableId) {
  return Asic::valueToStrep(Asic::SwTableId(tableId));
}

StateRows readRows(const StateImage& image) {
  StateRows rows;
  for (const TableFile& file : image.tables()) {
    const bool readable = file.image != nullptr && slotsCanBeTold(*file.image);
    if (file.role == TableRole::config) {
      rows.units[file.unit.value()] =
          readable ? std::optional(configRowsOf(*file.image)) : std::nullopt;
    }
    if (!readable) {
      continue;
    }
    if (file.role == TableRole::log) {
      rows.logScratchpad = scratchpadOf(*file.image);
      auto& log = rows.log.emplace();
      file.image->forEachGoodRow<LogRow>([&](std::uint32_t, const LogRow& row) {
        log.insert_or_assign(row.version().value(), row);
      });
    } else if (file.role == TableRole::groupLog) {
      rows.groupScratchpad = scratchpadOf(*file.image);
      auto& group = rows.group.emplace();
      file.image->forEachGoodRow<Asic::GroupLogRow>(
          [&](std::uint32_t, const Asic::GroupLogRow& row) {
            group.insert_or_assign(row.sequence(), row);
          });
    } else if (file.role == TableRole::applied) {
      auto& applied = rows.applied.emplace();
      file.image->forEachGoodRow<Asic::GroupVersionRow>(
          [&](std::uint32_t, const Asic::GroupVersionRow& row) {
            applied.insert_or_assign(row.tableVersion().tableId().value(),
                                     row.tableVersion().logVersion().value());
          });
    }
  }
  return rows;
}

std::vector<TableFinding> findingsOf(const TableFile& file, const Glint::Verification& found) {
  std::vector<TableFinding> findings;
  auto damaged = found.damagedSlots.begin();
  for (std::size_t i = 0; i < found.findings.size(); ++i) {
    const bool isStructural = i < found.structuralFindings;
    const bool isOfSlot = damaged != found.damagedSlots.end() && damaged->finding == i;
    findings.push_back({isStructural ? "damaged_structure"
                        : isOfSlot   ? "damaged_row"
                                     : "damaged_counter",
                        isOfSlot ? damagedSlotText(file, damaged->slot) : found.findings[i]});
    damaged += isOfSlot ? 1 : 0;
  }
  return findings;
}

}  // namespace Tools
