// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Glint/GlintMap.h"
#include "Pell/String.h"
#include "folder/Mapping.h"
#include "folder/RootFolder.h"
#include "format/SharedWord.h"
#include "format/TableView.h"

namespace Glint {

// A table file's bytes as they stood at one moment, copied into this process, so that they can be
// examined for any length of time while a writer works on the file.
//
// Take several tables at one moment like this: copy() each, then ask each unchanged(). If all say
// yes, every copy stands for the instant between the last copying and the first asking.
//
// Kind: object with identity. Ownership: holds a read-only mapping of the file, and the copy.
// Threads: one; the file's writer may be any process.
class TableImage {
 public:
  // Opens the file as a reader mount does. Throws ZevGlint::MountException when there is no such
  // file, or when it may not be opened.
  TableImage(const RootFolder& root, const Pell::String& fileName);
  TableImage(const TableImage&) = delete;
  TableImage& operator=(const TableImage&) = delete;

  // Why the file is not a table that can be read; empty if it is. With a fault there is nothing to
  // copy and nothing to read.
  const Pell::String& fault() const { return fault_; }

  // Copies what is in use, index first.
  void copy();
  // True if, since the copying, the writer has changed at most bytes at which no reader looks.
  bool unchanged() const;

  // The copy.
  const TableView& view() const { return copied_; }
  // Slots that the copy holds; 0 when the file's count of them is damaged.
  std::uint32_t slotsInUse() const { return slotsInUse_; }

  // Visits each row of the copy whose checksum matches, in slot order: visit(slot, row). The file
  // holds rows of this type.
  template <typename Row, typename Visit>
  void forEachGoodRow(Visit&& visit) const;

 private:
  std::uint32_t countedSlots() const;

  Mapping file_;
  Mapping copy_;
  Pell::String fault_;
  TableView live_;
  TableView copied_;
  std::uint32_t slotsInUse_ = 0;
};

template <typename Row, typename Visit>
void TableImage::forEachGoodRow(Visit&& visit) const {
  for (std::uint32_t slot = 0; slot < slotsInUse_; ++slot) {
    const Seq seq(*copied_.slot(slot));
    if (!seq.possible() || !seq.live()) {
      continue;
    }
    SealedRow<rowWords(sizeof(Row))> sealed{};
    if (checksOut(copied_.copyAt(slot, seq.copy()), seq.word(), std::span(sealed.words))) {
      visit(slot, rowOfWords<Row>(sealed.words.data()));
    }
  }
}

}  // namespace Glint
