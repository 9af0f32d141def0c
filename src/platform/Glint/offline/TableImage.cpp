// SPDX-License-Identifier: Apache-2.0

// The copying and the second look. Every change of a table ends in a store to a seq that only
// rises, so a slot whose seq is the same twice has not changed in between. The index has no
// versions: heads and links are compared whole. What may differ unseen is the copy of a row that no
// seq names yet.

#include "offline/TableImage.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "table/Inspection.h"

namespace Glint {

namespace {

std::byte* mapOrThrow(int protection, int flags, int fd, std::size_t bytes,
                      const Pell::String& path) {
  void* base = ::mmap(nullptr, bytes, protection, flags, fd, 0);
  if (base == MAP_FAILED) {
    throw ZevGlint::MountException(
        fmt::format("{}: cannot map it: {}", path, std::strerror(errno)));
  }
  return static_cast<std::byte*>(base);
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
  Header header{};
  if (file.status.st_size < static_cast<off_t>(sizeof header) ||
      ::pread(file.fd.get(), &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    fault_ = "it is too short for a shared table";
    return;
  }
  bytes_ = static_cast<std::size_t>(file.status.st_size);
  fault_ = sealedHeaderFinding(header.fixed, bytes_);
  if (!fault_.empty()) {
    return;
  }
  file_ = mapOrThrow(PROT_READ, MAP_SHARED, file.fd.get(), bytes_, path);
  try {
    copy_ = mapOrThrow(PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                       bytes_, path);
  } catch (const ZevGlint::MountException&) {
    ::munmap(file_, bytes_);
    throw;
  }
  live_ = TableView(file_, header.fixed);
  copied_ = TableView(copy_, header.fixed);
}

TableImage::~TableImage() {
  if (file_ != nullptr) {
    ::munmap(file_, bytes_);
    ::munmap(copy_, bytes_);
  }
}

std::uint32_t TableImage::countedSlots() const {
  const Counter inUse(copied_.header().slotsInUse);
  return inUse.valid() && inUse.value() <= copied_.fixed().slotCount ? inUse.value() : 0;
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
