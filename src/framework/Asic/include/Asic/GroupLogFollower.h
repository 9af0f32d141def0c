// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "Asic/GroupLog.h"
#include "Asic/NeededEntry.h"

namespace Asic {

// One operation, as the group log announces it.
struct Announcement {
  std::uint64_t sequence = 0;  // of its last row
  TableVersion tableVersion;
  TableVersions needed;  // what must be applied before it, in the order in which it was added
};

// Assembles the rows of a group log into announcements. A row that continues an operation is
// dropped if not all earlier rows of the operation were taken. The rows of an operation are also
// dropped if its later rows do not follow, because a kill or damage has cost them.
//
// Kind: value type.
class AnnouncementCollector {
 public:
  // The next row, in rising order of sequence; it must be plausible. True: it completes an
  // operation, and announcement() is that.
  bool take(const GroupLogRow& row);
  const Announcement& announcement() const { return collected_; }

 private:
  Announcement collected_;
  bool open_ = false;  // the last row taken was marked continued
};

// Reads a group log while its writer works: hands out the announced operations in group order, each
// once and whole.
//
// Kind: object with identity; its only state is its place in the log.
// Ownership: holds the mount, which may be a reader's or the writer's.
// Threads: one; the writer may be another process.
// Errors: damage goes to the map and never comes out as an exception. A scratchpad that is damaged
// announces nothing; the writer's next announcement replaces it.
class GroupLogFollower {
 public:
  enum class Found : std::uint8_t {
    announcement,  // there was one
    nothingNew,    // everything that has been announced has been handed out
    gap,           // the row at lastTaken() is missing or damaged: its operation is unknown
  };

  // Begins at the end of the log: next() does not hand out operations that are announced already.
  explicit GroupLogFollower(const Pell::Ptr<GroupLogGlint>& groupLog);

  // The next operation; `next` is changed only if there is one. Behind a gap it goes on with the
  // next row. A row goes when its operation has been reported applied, so a follower that is behind
  // such reports meets gaps that are not damage.
  Found next(Announcement& next);

  // Goes to the end of the log and hands out the operations that still stand there, in group order:
  // those that have not been reported applied, and the latest that have. False: damage may have
  // hidden some. Costs a look at every slot in use.
  [[nodiscard]] bool startOver(std::vector<Announcement>& standing);

  // The sequence up to which rows have been taken.
  std::uint64_t lastTaken() const { return lastTaken_; }

 private:
  bool lookForMore();

  Pell::Ptr<GroupLogGlint> groupLog_;
  AnnouncementCollector collector_;
  std::uint64_t lastTaken_ = 0;
  std::uint64_t announced_ = 0;  // the scratchpad, when it was looked at last
};

}  // namespace Asic
