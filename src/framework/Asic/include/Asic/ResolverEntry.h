// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/DependencyEntryHandle.h"

namespace Asic {

// One operation in the group resolver's queue.
//
// Ownership: held by the queue until it has been committed; holds the operation that it depends on.
class ResolverEntry : public Zev::PtrInterface {
 protected:
  // A null dependency: the operation depends on none.
  ResolverEntry(const Pell::Ptr<DependencyEntryHandle const>& dependantEntryHandle,
                EntryFlags flags)
      : dependantEntryHandle_(dependantEntryHandle), flags_(flags) {}
  ~ResolverEntry() override;

 public:
  // Whether the operation may be committed now.
  virtual bool isResolved() = 0;
  // Commits it. Called by the resolver right after isResolved() answered true, with a pointer to
  // this entry.
  virtual void commitEntry(const Pell::Ptr<ResolverEntry>& resolverEntry) = 0;

  const Pell::Ptr<DependencyEntryHandle const>& dependantEntryHandle() const {
    return dependantEntryHandle_;
  }
  EntryFlags flags() const { return flags_; }
  bool isEntryDeleted() const { return (flags_.value() & EntryFlags::entryDelete().value()) != 0; }
  bool isTableDeleted() const { return (flags_.value() & EntryFlags::tableDelete().value()) != 0; }

 private:
  Pell::Ptr<DependencyEntryHandle const> dependantEntryHandle_;
  EntryFlags flags_;
};

}  // namespace Asic
