// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "format/Format.h"
#include "format/SharedWord.h"

namespace Glint {

// The parts of one mapped table file, found from its sealed header.
//
// Kind: value type: pointers into the mapping, which it does not own, and its own copy of the
// sealed header, so that later damage to the header in the file changes nothing.
// Invariants: slot numbers are below fixed().slotCount; only slots below slotsInUse are backed by
// reserved memory, so no other slot may be touched.
class TableView {
 public:
  TableView() = default;
  // `base` maps the whole file; `sealed` is its sealed header, which has been checked.
  TableView(std::byte* base, const FixedHeader& sealed) : base_(base), fixed_(sealed) {
    geometry_ = Geometry::of(sealed.bucketCount, sealed.slotCount, sealed.slotBytes);
    slotWords_ = sealed.slotBytes / 8;
    bucketMask_ = sealed.bucketCount - 1;
    heads_ = at<std::uint32_t>(geometry_.headsAt);
    links_ = at<std::uint32_t>(geometry_.linksAt);
    slots_ = at<std::uint64_t>(geometry_.slotsAt);
  }

  Header& header() const { return *at<Header>(0); }
  const FixedHeader& fixed() const { return fixed_; }
  const Geometry& geometry() const { return geometry_; }

  std::uint32_t& head(std::uint32_t bucket) const { return heads_[bucket]; }
  std::uint32_t& linkAfter(std::uint32_t slot) const { return links_[slot]; }
  // The slot's first word is its seq.
  std::uint64_t* slot(std::uint32_t slot) const { return slots_ + std::size_t{slot} * slotWords_; }
  std::uint32_t bucketMask() const { return bucketMask_; }
  // Where a copy of the slot's row begins: its checksum, the row follows.
  std::uint64_t* copyAt(std::uint32_t slot, unsigned copy) const {
    return this->slot(slot) + copyWord(rowWords(fixed_.rowBytes), copy);
  }

  // Whether the header's word can be the number of slots in use.
  bool canBeInUse(Counter slots) const {
    return slots.valid() && slots.value() <= fixed_.slotCount;
  }
  // The key bits of the row in the copy that `seq` names, whether the row checks out or not.
  std::uint64_t keyBits(std::uint32_t slot, Seq seq) const {
    return keyBitsOf(loadRelaxed(copyAt(slot, seq.copy())[1]), fixed_.keyBytes);
  }
  // Whether the copy that `seq` names is what was published under exactly `seq`.
  bool rowChecksOut(std::uint32_t slot, Seq seq) const {
    std::array<std::uint64_t, kPageBytes / 8 + 1> room;  // NOLINT(*-member-init): is filled below
    return checksOut(copyAt(slot, seq.copy()), seq.word(),
                     std::span(room).first(rowWords(fixed_.rowBytes) + 1));
  }

 private:
  template <typename T>
  T* at(std::uint64_t offset) const {
    return static_cast<T*>(static_cast<void*>(base_ + offset));
  }

  std::byte* base_ = nullptr;
  FixedHeader fixed_{};
  Geometry geometry_;
  std::size_t slotWords_ = 0;
  std::uint32_t bucketMask_ = 0;
  std::uint32_t* heads_ = nullptr;
  std::uint32_t* links_ = nullptr;
  std::uint64_t* slots_ = nullptr;
};

}  // namespace Glint
