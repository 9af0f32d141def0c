// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "Asic/HardwareSide.h"
#include "hardware/LogDrivenHardware.h"
#include "hardware/SimulatedAsic.h"
#include "records/FecRecords.h"
#include "records/FecTableConstants.h"

// The simulated ASIC as tests use it, and what hardware holds of the FEC table. For tests that
// link `hardware`.

namespace testing_support {

inline Asic::HardwareMaker simulatedHardware() {
  return Hardware::drivenByTheLog([] { return std::make_unique<Hardware::SimulatedAsic>(); });
}

// Nothing when the hardware has no such entry.
inline std::optional<LoamFec::FecTableDataModelLogEntry> heldEntry(
    const Asic::HardwareSide& hardware, Asic::UnitId unitId, std::uint32_t fecId) {
  LoamFec::FecTableDataModelLogEntry entry;
  const bool isThere = hardware.entry(LoamFec::FecTableConstants::kTableId, unitId, fecId,
                                      std::as_writable_bytes(std::span(&entry, 1)));
  return isThere ? std::optional(entry) : std::nullopt;
}

inline std::uint32_t heldEntries(const Asic::HardwareSide& hardware, Asic::UnitId unitId) {
  return hardware.entries(LoamFec::FecTableConstants::kTableId, unitId);
}

// Calls visit(entry) for each.
template <typename Visit>
void forEachHeld(const Asic::HardwareSide& hardware, Asic::UnitId unitId, Visit&& visit) {
  hardware.forEachEntry(LoamFec::FecTableConstants::kTableId, unitId,
                        [&](std::uint64_t fecId, std::span<const std::byte>) {
                          visit(*heldEntry(hardware, unitId, static_cast<std::uint32_t>(fecId)));
                        });
}

}  // namespace testing_support
