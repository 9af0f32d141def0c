// SPDX-License-Identifier: Apache-2.0

#include "records/FecRecords.h"

namespace LoamFec {

namespace {

Pell::String destinationText(const FecDestination& destination) {
  return fmt::format("{:#x}/{}/{}", destination.first, destination.second, destination.third);
}

}  // namespace

bool FecTableDataModelLogEntry::isEq(const FecTableDataModelLogEntry& a,
                                     const FecTableDataModelLogEntry& b) {
  return a.key == b.key && a.flagA == b.flagA && FecDestination::isEq(a.clientDest, b.clientDest) &&
         a.opaqueA == b.opaqueA && a.opaqueB == b.opaqueB && a.flagB == b.flagB &&
         FecDestination::isEq(a.resolvedDest, b.resolvedDest);
}

bool FecTableDataModelEntry::isEq(const FecTableDataModelEntry& a,
                                  const FecTableDataModelEntry& b) {
  return a.intfId == b.intfId && FecTableDataModelLogEntry::isEq(a.logEntry(), b.logEntry());
}

FecTableDataModelLogEntry FecTableDataModelEntry::logEntry() const {
  FecTableDataModelLogEntry logged;
  logged.key = key;
  logged.flagA = flagA;
  logged.clientDest = clientDest;
  logged.opaqueA = opaqueA;
  logged.opaqueB = opaqueB;
  logged.flagB = flagB;
  logged.resolvedDest = resolvedDest;
  return logged;
}

FecTableDataModelEntry FecTableDataModelEntry::fromLog(
    const FecTableDataModelLogEntry& logEntry, const FecTableDataModelResourceKeys& resourceKeys) {
  FecTableDataModelEntry entry;
  entry.key = logEntry.key;
  entry.flagA = logEntry.flagA;
  entry.clientDest = logEntry.clientDest;
  entry.opaqueA = logEntry.opaqueA;
  entry.opaqueB = logEntry.opaqueB;
  entry.flagB = logEntry.flagB;
  entry.resolvedDest = logEntry.resolvedDest;
  entry.intfId = resourceKeys.intfId;
  return entry;
}

Pell::String valueToStrep(const FecTableDataModelEntryKey& key) {
  return fmt::format("{}", key.fecId());
}

Pell::String valueToStrep(const FecTableDataModelLogEntry& logEntry) {
  return fmt::format("key:{} flagA:{} clientDest:{} opaqueA:{} opaqueB:{} flagB:{} resolvedDest:{}",
                     logEntry.key, logEntry.flagA, destinationText(logEntry.clientDest),
                     logEntry.opaqueA, logEntry.opaqueB, logEntry.flagB,
                     destinationText(logEntry.resolvedDest));
}

Pell::String valueToStrep(const FecTableDataModelEntry& entry) {
  return fmt::format("{} intfId:{}", entry.logEntry(), entry.intfId);
}

}  // namespace LoamFec
