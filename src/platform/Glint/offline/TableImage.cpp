// SPDX-License-Identifier: Apache-2.0

// The copying and the second look. Every change of a table ends in a store to a seq that only
// rises, so a slot whose seq is the same twice has not changed in between. The index has no
// versions: heads and links are compared whole. What may differ unseen is the copy of a row that no
// seq names yet.

#include "offline/TableImage.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "table/Inspection.h"

namespace Glint {

namespace {

Mapping orThrow(Mapping mapping, const Pell::String& path) {
  if (!mapping) {
    throw ZevGlint::MountException(
        fmt::format("{}: cannot map it: {}", path, std::strerror(errno)));
  }
  return mapping;
}

template <typename Word>
void copyWords(const Word* from, Word* to, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    to[i] = loadRelaxed(from[i]);
  }
}

template <typename Word>
bool sameWords(const Word* live, const Word* copied, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (loadRelaxed(live[i]) != copied[i]) {
      return false;
    }
  }
  return true;
}

constexpr std::size_t kHeaderWords = sizeof(Header) / 8;

std::uint64_t* headerWords(const TableView& view) {
  return static_cast<std::uint64_t*>(static_cast<void*>(&view.header()));
}

}  // namespace

TableImage::TableImage(const RootFolder& root, const Pell::String& fileName) {
  const RootFolder::File file = root.open(fileName, RootFolder::Access::read);
  const Pell::String path = root.filePath(fileName);
  if (!file.fd) {
    throw ZevGlint::MountException(path + ": there is no such table");
  }
  const auto bytes = static_cast<std::size_t>(file.status.st_size);
  FixedHeader header{};
  fault_ = readSealedHeader(file.fd.get(), bytes, header);
  if (!fault_.empty()) {
    return;
  }
  file_ = orThrow(Mapping::ofFile(file.fd.get(), bytes, Mapping::Access::read), path);
  copy_ = orThrow(Mapping::ofOwnMemory(bytes), path);
  live_ = TableView(file_.base(), header);
  copied_ = TableView(copy_.base(), header);
}

std::uint32_t TableImage::countedSlots() const {
  const Counter inUse(copied_.header().slotsInUse);
  return copied_.canBeInUse(inUse) ? inUse.value() : 0;
}

// A link that is seen leads to a slot that had been filled by then, so slots come last.
void TableImage::copy() {
  if (!fault_.empty()) {
    return;
  }
  copyWords(headerWords(live_), headerWords(copied_), kHeaderWords);
  slotsInUse_ = countedSlots();
  fenceBeforeSecondLook();
  copyWords(&live_.head(0), &copied_.head(0), std::size_t{live_.bucketMask()} + 1);
  copyWords(&live_.linkAfter(0), &copied_.linkAfter(0), slotsInUse_);
  fenceBeforeSecondLook();
  copyWords(live_.slot(0), copied_.slot(0), std::size_t{slotsInUse_} * live_.fixed().slotBytes / 8);
}

bool TableImage::unchanged() const {
  if (!fault_.empty()) {
    return true;
  }
  fenceBeforeSecondLook();
  for (std::uint32_t slot = 0; slot < slotsInUse_; ++slot) {
    if (loadRelaxed(*live_.slot(slot)) != *copied_.slot(slot)) {
      return false;
    }
  }
  return sameWords(headerWords(live_), headerWords(copied_), kHeaderWords) &&
         sameWords(&live_.head(0), &copied_.head(0), std::size_t{live_.bucketMask()} + 1) &&
         sameWords(&live_.linkAfter(0), &copied_.linkAfter(0), slotsInUse_);
}

}  // namespace Glint
