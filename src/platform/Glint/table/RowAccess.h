// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Pell/Assert.h"
#include "Zev/WorkMeter.h"
#include "table/Table.h"

namespace Glint {

// The operations on rows of one size: the protocol of Table.cpp, store by store.
//
// Kind: value type, a pointer to the table; generated for each row size so that copies and
// checksums are straight code. Nothing here allocates.
// Threads: as the table. Reads work in any process while the writer runs or after it was killed:
// every loop is bounded, none waits.
// Errors: every operation throws Pell::CorruptionDetectedException when it meets bytes that no
// writer can have left; a mutator has not changed anything then.
//
// Rows travel as words: the row's bytes, zero padded to whole words.
template <std::size_t kRowBytes, std::size_t kKeyBytes, KeyHash kKeyHash>
class RowAccess {
 public:
  static constexpr std::size_t kWords = rowWords(kRowBytes);
  // The row; the word behind it is the table's own.
  using Row = SealedRow<kWords>;

  explicit RowAccess(Table& table) : table_(&table), view_(&table.view()) {}

  static std::uint64_t keyBits(const Row& row) { return keyBitsOf(row.words[0], kKeyBytes); }

  // The slot of the key's row, which is copied to `out`.
  std::optional<std::uint32_t> find(std::uint64_t key, Row& out) const {
    Zev::WorkMeter::add(1);
    for (int attempt = 0; attempt < kIndexAttempts; ++attempt) {
      Place place;
      switch (lookUp(key, place)) {
        case Answer::absent:
          return std::nullopt;
        case Answer::found:
          if (copyOut(place.slot, place.seq, out)) {
            return place.slot;
          }
          break;
        case Answer::changed:
          break;
      }
    }
    return scan(key, out);
  }

  // Fetches what a lookup of the key will most likely need, without waiting for it.
  void fetchAhead(std::uint64_t key) const {
    const Link first(loadRelaxed(view_->head(bucket(key))));
    if (!first.atEnd() && first.slot() < view_->fixed().slotCount) {
      prefetch(first.slot());
    }
  }

  // Inserts the row or replaces the one of its key.
  void write(Row& row) {
    Zev::WorkMeter::add(1);
    Place place;
    switch (lookUp(keyBits(row), place)) {
      case Answer::found:
        publish(place.slot, place.seq, row);
        return;
      case Answer::absent:
        insert(row);
        return;
      case Answer::changed:
        table_->throwDamagedIndex(bucket(keyBits(row)), "changed while its only writer looked");
    }
  }

  // False if the key has no row.
  bool remove(std::uint64_t key) {
    Zev::WorkMeter::add(1);
    Place place;
    switch (lookUp(key, place)) {
      case Answer::found:
        break;
      case Answer::absent:
        return false;
      case Answer::changed:
        table_->throwDamagedIndex(bucket(key), "changed while its only writer looked");
    }
    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());
    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    table_->rowDeleted(place.slot);
    return true;
  }

  // Moves `slot` on to the first slot, from itself to before `end`, that holds a row, which is
  // copied to `out`; false, and `slot` at `end`, when there is none. When this throws, `slot` is
  // the damaged one.
  bool nextRow(std::uint32_t& slot, std::uint32_t end, Row& out) const {
    for (; slot < end; ++slot) {
      Zev::WorkMeter::add(1);
      if (rowOfSlot(slot, out)) {
        return true;
      }
    }
    return false;
  }

 private:
  // Looks through the index before a reader turns to the slots themselves. One attempt is enough
  // unless the writer changes this chain or this row meanwhile.
  static constexpr int kIndexAttempts = 64;
  // Looks at one slot. An attempt fails only if the writer publishes the slot's row twice during
  // one copy, so a reader that makes any progress stays far below the bound.
  static constexpr int kSlotAttempts = 1 << 16;

  enum class Answer { found, absent, changed };
  struct Place {
    std::uint32_t slot = 0;
    Seq seq;
    std::uint32_t* link = nullptr;  // the word that leads to the slot
  };

  std::uint32_t bucket(std::uint64_t key) const {
    return bucketOf(key, kKeyHash, view_->bucketMask() + 1);
  }
  std::uint64_t* copyAt(std::uint32_t slot, unsigned copy) const {
    return view_->slot(slot) + copyWord(kWords, copy);
  }
  // A slot lies on two to five cache lines, most of which a hit will need: fetch them together.
  void prefetch(std::uint32_t slot) const {
    constexpr std::size_t kSlotWords = slotBytes(kRowBytes) / 8;
    const std::uint64_t* words = view_->slot(slot);
    for (std::size_t word = 0; word < kSlotWords; word += 8) {
      __builtin_prefetch(words + word);
    }
    __builtin_prefetch(words + kSlotWords - 1);
  }
  std::uint64_t keyAt(std::uint32_t slot, Seq seq) const {
    return keyBitsOf(loadRelaxed(copyAt(slot, seq.copy())[1]), kKeyBytes);
  }

  // Follows the key's chain. A hit is good if seq still says so when the row has been copied; a
  // miss is good if the generation has not risen since before the first look.
  Answer lookUp(std::uint64_t key, Place& place) const {
    const std::uint64_t generation = table_->generation();
    if ((generation & 1U) != 0) {
      return Answer::changed;
    }
    const std::uint32_t chain = bucket(key);
    place.link = &view_->head(chain);
    const Link first(loadAcquire(*place.link));
    Link link = first;
    for (std::uint32_t hops = 0; !link.atEnd(); ++hops) {
      place.slot = slotOf(link, chain);
      prefetch(place.slot);
      place.seq = seqOf(place.slot);
      if (place.seq.live() && keyAt(place.slot, place.seq) == key) {
        return Answer::found;
      }
      if (hops == view_->fixed().slotCount) {
        return sameGeneration(generation) ? damagedIndex(chain, "its chain is a cycle")
                                          : Answer::changed;
      }
      place.link = &view_->linkAfter(place.slot);
      link = Link(loadAcquire(*place.link));
    }
    if (first.atEnd()) {
      return sameGeneration(generation) ? Answer::absent : Answer::changed;
    }
    return confirmAbsent(key, chain, generation);
  }

  // A damaged key or a chain led astray would make a row look absent: before a miss is believed,
  // everything on the chain must be sound.
  Answer confirmAbsent(std::uint64_t key, std::uint32_t chain, std::uint64_t generation) const {
    std::uint32_t hops = 0;
    Link link(loadAcquire(view_->head(chain)));
    for (; !link.atEnd(); link = Link(loadAcquire(view_->linkAfter(link.slot())))) {
      const std::uint32_t slot = slotOf(link, chain);
      const Seq seq = seqOf(slot);
      const Answer answer =
          seq.live() ? confirmOther(slot, seq, key, chain) : confirmInFlight(slot, seq, chain);
      const bool foreign = answer == Answer::found || hops++ == view_->fixed().slotCount;
      if (foreign && sameGeneration(generation)) {
        return damagedIndex(chain, "a slot is on its chain that does not belong there");
      }
      if (foreign || answer == Answer::changed) {
        return Answer::changed;
      }
    }
    return sameGeneration(generation) ? Answer::absent : Answer::changed;
  }

  // absent: a good row of another key of the chain; found: a row of another chain.
  Answer confirmOther(std::uint32_t slot, Seq seq, std::uint64_t key, std::uint32_t chain) const {
    Row row{};
    if (!copyOut(slot, seq, row) || keyBits(row) == key) {
      return Answer::changed;
    }
    return bucket(keyBits(row)) == chain ? Answer::absent : Answer::found;
  }

  // absent: a change of the slot is under way, or was when its writer was killed; found: it is
  // dead and should not be here.
  Answer confirmInFlight(std::uint32_t slot, Seq seq, std::uint32_t chain) const {
    if (seq.retired()) {
      return Answer::absent;
    }
    for (const Seq under : {seq.published(), seq.beforeDelete()}) {
      Row row{};
      if (checksOut(copyAt(slot, under.copy()), under.word(), std::span(row.words)) &&
          bucket(keyBits(row)) == chain) {
        return Answer::absent;
      }
    }
    fenceBeforeSecondLook();
    return seqOf(slot) == seq ? Answer::found : Answer::changed;
  }

  // Looks without the index, for a reader that cannot use it because of the writer or of its death.
  // A row that stays is in its slot all the time, so it is not missed.
  std::optional<std::uint32_t> scan(std::uint64_t key, Row& out) const {
    const std::uint32_t end = table_->slotsInUse();
    for (std::uint32_t slot = 0; slot < end; ++slot) {
      if (rowOfSlot(slot, out) && keyBits(out) == key) {
        return slot;
      }
    }
    return std::nullopt;
  }

  bool rowOfSlot(std::uint32_t slot, Row& out) const {
    for (int attempt = 0; attempt < kSlotAttempts; ++attempt) {
      const Seq seq = seqOf(slot);
      if (!seq.live()) {
        return false;
      }
      if (copyOut(slot, seq, out)) {
        return true;
      }
    }
    static_assert(kSlotAttempts == 65536);
    table_->throwDamagedSlot(slot, "its row changed during every one of 65536 looks");
  }

  // False if the slot changed meanwhile.
  bool copyOut(std::uint32_t slot, Seq seq, Row& out) const {
    switch (readCopy(copyAt(slot, seq.copy()), *view_->slot(slot), seq.word(), out)) {
      case CopyState::good:
        return true;
      case CopyState::changed:
        return false;
      case CopyState::damaged:
        break;
    }
    table_->throwDamagedRow(slot, keyBits(out));
  }

  void insert(Row& row) {
    const std::uint32_t slot = table_->takeFreeSlot();
    const Seq seq = seqOf(slot);
    if (seq.live()) {
      table_->throwDamagedSlot(slot, "it is live and was free");
    }
    std::uint32_t& head = view_->head(bucket(keyBits(row)));
    const Seq next = fillIdle(slot, seq, row);
    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));
    storeRelease(head, Link::to(slot).word());
    storeRelease(*view_->slot(slot), next.word());
    table_->rowInserted();
  }

  void publish(std::uint32_t slot, Seq seq, Row& row) {
    const Seq next = fillIdle(slot, seq, row);
    storeRelease(*view_->slot(slot), next.word());
  }

  Seq fillIdle(std::uint32_t slot, Seq seq, Row& row) {
    PELL_ASSERT_MESSAGE(seq.version() + 2 < Seq::kVersionLimit, "the slot's version can rise",
                        table_->filePath());
    const Seq next = seq.published();
    fillCopy(copyAt(slot, next.copy()), row, next.word());
    return next;
  }

  std::uint32_t slotOf(Link link, std::uint32_t chain) const {
    if (!link.valid() || link.slot() >= table_->slotsInUse()) [[unlikely]] {
      table_->throwDamagedIndex(chain, "a link on its chain leads nowhere");
    }
    return link.slot();
  }
  Seq seqOf(std::uint32_t slot) const {
    const Seq seq(loadAcquire(*view_->slot(slot)));
    if (!seq.possible()) [[unlikely]] {
      table_->throwDamagedSlot(slot, "its seq is impossible");
    }
    return seq;
  }
  bool sameGeneration(std::uint64_t generation) const {
    fenceBeforeSecondLook();
    return loadRelaxed(view_->header().generation) == generation;
  }
  [[noreturn]] Answer damagedIndex(std::uint32_t chain, const char* what) const {
    table_->throwDamagedIndex(chain, what);
  }

  Table* table_;
  const TableView* view_;
};

}  // namespace Glint
