// SPDX-License-Identifier: Apache-2.0

// The records that carry one request from the table that accepts it to the commit that logs it, and
// the hook interface of the platform. All decisions are the software table's and its linkage's;
// what stands here holds, forwards and finalises.

#include "fec/FecTableInfraTypes.h"

#include <utility>

#include "Zev/Trace.h"
#include "fec/FecTableSwTable.h"

namespace LoamFec {

namespace {

constexpr const char* kWrapperClass = "FecTableEntryWrapper";
constexpr const char* kResolverEntryClass = "FecTableResolverEntry";
constexpr const char* kHelperClass = "FecTableSwTableHelperBase";

Zev::TraceHandle& wrapperTrace = Zev::traceHandle(kWrapperClass);
Zev::TraceHandle& resolverEntryTrace = Zev::traceHandle(kResolverEntryClass);
Zev::TraceHandle& helperTrace = Zev::traceHandle(kHelperClass);

}  // namespace

FecTableEntryWrapper::FecTableEntryWrapper(
    const FecTableDataModelEntry& entry,
    const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle)
    : entry_(entry), entryHandle_(entryHandle) {}

Zev::TypeRecord FecTableEntryWrapper::typeRecord() {
  return {kTypeName, {{"entry", 1}, {"entryHandle", 2}, {"intfIdResPtr", 3}}};
}

FecTableEntryWrapper::DestId FecTableEntryWrapper::destId() const {
  const LoamAdjLib::DestId destination =
      intfIdResPtr_ ? intfIdResPtr_->destId() : LoamAdjLib::DestId();
  return {destination.first, destination.second, destination.third};
}

void FecTableEntryWrapper::setResolvedFields() {
  const DestId destination = destId();
  entry_.resolvedDest.first = destination.first;
  entry_.resolvedDest.second = static_cast<std::uint16_t>(destination.second);
  entry_.resolvedDest.third = destination.third;
}

void FecTableEntryWrapper::finalizeOnSuccess(const Pell::Ptr<FecTableSwTable>& swTable,
                                             bool isDeleted) {
  ZEV_TRACE(wrapperTrace, 8, kWrapperClass, " key: {} isDeleted: {}", key(), isDeleted);
  if (!isDeleted) {
    setResolvedFields();
  }
  const Pell::Ptr<FecTableSwTableHelperBase> helper = swTable->swTableHelper();
  helper->finalizeOnSuccess(Ptr(this), isDeleted);
}

bool FecTableEntryWrapper::finalizeOnFailure(const Pell::Ptr<FecTableSwTable>& swTable,
                                             bool isDeleted) {
  ZEV_TRACE(wrapperTrace, 8, kWrapperClass, " key: {} isDeleted: {}", key(), isDeleted);
  const Pell::Ptr<FecTableSwTableHelperBase> helper = swTable->swTableHelper();
  const bool retVal = helper->finalizeOnFailure(Ptr(this), isDeleted, swTable);
  ZEV_TRACE(wrapperTrace, 3, kWrapperClass, " retVal: {}", retVal);
  return retVal;
}

FecTableResolverEntry::FecTableResolverEntry(
    const Pell::Ptr<Asic::DependencyEntryHandle const>& dependantEntryHandle,
    Asic::EntryFlags flags, FecTableSwTable* swTable,
    const Pell::Ptr<FecTableEntryWrapper>& swTableEntry)
    : Typed(dependantEntryHandle, flags), swTable_(swTable), swTableEntry_(swTableEntry) {}

Zev::TypeRecord FecTableResolverEntry::typeRecord() {
  return {kTypeName,
          {{"dependantEntryHandle", 1}, {"flags", 2}, {"swTable", 3}, {"swTableEntry", 4}}};
}

bool FecTableResolverEntry::isResolved() {
  ZEV_TRACE(resolverEntryTrace, 8, kResolverEntryClass, "key: {}", swTableEntry_->key());
  return swTable_->isResolverEntryResolved(Pell::Ptr<FecTableResolverEntry>(this));
}

void FecTableResolverEntry::commitEntry(const Pell::Ptr<Asic::ResolverEntry>& resolverEntry) {
  ZEV_TRACE(resolverEntryTrace, 8, kResolverEntryClass, "key: {}", swTableEntry_->key());
  swTable_->commitEntry(resolverEntry);
}

Zev::TypeRecord FecTableSwTableHelperBase::typeRecord() {
  return {kTypeName,
          {},
          {{"finalizeOnSuccess", {"entry", "isDelete"}},
           {"finalizeOnFailure", {"entry", "isDelete", "swTable"}},
           {"finalizeOnResourceUpdate", {"entry", "swTable", "someResourceHasFailed"}},
           {"handleHwError", {"entry", "errorCode"}}}};
}

void FecTableSwTableHelperBase::finalizeOnSuccess(Pell::Ptr<FecTableEntryWrapper> const& entry,
                                                  bool isDelete) {
  ZEV_TRACE(helperTrace, 8, kHelperClass, "key: {}, isDelete: {}", entry->key(), isDelete);
}

bool FecTableSwTableHelperBase::finalizeOnFailure(Pell::Ptr<FecTableEntryWrapper> const& entry,
                                                  bool isDelete,
                                                  Pell::Ptr<FecTableSwTable> const& /*swTable*/) {
  ZEV_TRACE(helperTrace, 8, kHelperClass, "key: {}, isDelete: {}", entry->key(), isDelete);
  return false;
}

bool FecTableSwTableHelperBase::finalizeOnResourceUpdate(
    Pell::Ptr<FecTableEntryWrapper> const& entry, Pell::Ptr<FecTableSwTable> const& /*swTable*/,
    bool someResourceHasFailed) {
  ZEV_TRACE(helperTrace, 8, kHelperClass, "key: {}, someResourceHasFailed: {}", entry->key(),
            someResourceHasFailed);
  return true;
}

void FecTableSwTableHelperBase::handleHwError(Pell::Ptr<FecTableEntryWrapper> const& entry,
                                              unsigned int errorCode) {
  ZEV_TRACE(helperTrace, 8, kHelperClass, "key: {}, errorCode: {}", entry->key(), errorCode);
}

}  // namespace LoamFec
