// SPDX-License-Identifier: Apache-2.0

#include "Asic/Versions.h"

namespace Asic {

Pell::String valueToStrep(LogVersion version) { return fmt::format("{}", version.value()); }

Pell::String valueToStrep(MajorVersion version) { return fmt::format("{}", version.value()); }

Pell::String valueToStrep(const EntryVersion& version) {
  return fmt::format("{}.{}", version.major(), version.minor());
}

Pell::String valueToStrep(SwTableId id) {
  return fmt::format("{:02x}:{:02x}:{:04x}", id.agentId(), id.groupId(), id.tblId());
}

Pell::String valueToStrep(const TableVersion& tableVersion) {
  return fmt::format("{}@{}", tableVersion.tableId(), tableVersion.logVersion());
}

Pell::String valueToStrep(UnitId unitId) { return fmt::format("{}", unitId.value()); }

Pell::String valueToStrep(EntryState state) {
  return fmt::format("{}", static_cast<unsigned>(state));
}

std::ostream& operator<<(std::ostream& stream, EntryState state) {
  return stream << valueToStrep(state);
}

}  // namespace Asic
