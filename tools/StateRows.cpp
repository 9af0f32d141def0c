#include "tools/StateRows.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#include <fmt/format.h>

#include "Glint/Inspection.h"

namespace Tools {

namespace {

bool slotsCanBeTold(const Glint::TableImage& image) {
  const Glint::Counter inUse(image.view().header().slotsInUse);
  return inUse.valid() && inUse.value() <= image.view().fixed().slotCount;
}

// The copy's scratchpad; nothing if it is damaged.
std::optional<std::uint64_t> scratchpadOf(const Glint::TableImage& image) {
  const Glint::ScratchpadSlot& pad = image.view().header().scratchpad;
  const Glint::Seq seq(pad.seq);
  if (!seq.valid() || !seq.live()) {
    return std::nullopt;
  }
  const Glint::ScratchpadSlot::Copy& copy = pad.copies[seq.copy()];
  const Glint::SealedRow<1> row{{copy.value, seq.word()}};
  return row.checksum() == copy.checksum ? std::optional(copy.value) : std::nullopt;
}

StateRows::ConfigRows configRowsOf(const Glint::TableImage& image) {
  StateRows::ConfigRows rows;
  image.forEachGoodRow<ConfigRow>(
      [&](std::uint32_t, const ConfigRow& row) { rows.insert_or_assign(row.key().fecId(), row); });
  return rows;
}

template <typename Row>
Row rowAt(const Glint::TableImage& image, std::uint32_t slot) {
  const std::uint64_t* words = image.view().slot(slot);
  const std::size_t copy =
      Glint::copyWord(Glint::rowWords(sizeof(Row)), Glint::Seq(words[0]).copy());
  std::array<std::byte, sizeof(Row)> bytes{};
  std::memcpy(bytes.data(), words + copy + 1, bytes.size());
  return std::bit_cast<Row>(bytes);
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

std::string rowText(const TableFile& file, std::uint32_t slot) {
  switch (file.role) {
    case TableRole::config: {
      const auto row = rowAt<ConfigRow>(*file.image, slot);
      return fmt::format("FEC {}, version {}", row.key().fecId(), row.version().value());
    }
    case TableRole::log: {
      const auto row = rowAt<LogRow>(*file.image, slot);
      return fmt::format("version {}, unit {}, FEC {}", row.version().value(), row.unitId().value(),
                         row.logEntry().key.fecId());
    }
    case TableRole::groupLog: {
      const auto row = rowAt<Asic::GroupLogRow>(*file.image, slot);
      return fmt::format("sequence {}, version {} of table {}", row.sequence(),
                         row.tableVersion().logVersion().value(),
                         tableIdText(row.tableVersion().tableId().value()));
    }
    case TableRole::applied: {
      const auto row = rowAt<Asic::GroupVersionRow>(*file.image, slot);
      return fmt::format("table {}, version {}", tableIdText(row.tableVersion().tableId().value()),
                         row.tableVersion().logVersion().value());
    }
    case TableRole::other:
      break;
  }
  return "of a kind that is not known here";
}

}  // namespace Tools
