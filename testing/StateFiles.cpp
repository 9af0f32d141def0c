// SPDX-License-Identifier: Apache-2.0

#include "testing/StateFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "folder/FolderUpkeep.h"
#include "folder/RootFolder.h"

namespace testing_support {

namespace fs = std::filesystem;

namespace {

Glint::UniqueFd open(const std::string& path, int flags) {
  Glint::UniqueFd file(::open(path.c_str(), flags | O_CLOEXEC));
  if (!file) {
    throw std::runtime_error("cannot open " + path);
  }
  return file;
}

template <typename Value>
Value valueAt(int file, std::uint64_t offset) {
  Value value{};
  if (::pread(file, &value, sizeof value, static_cast<off_t>(offset)) !=
      static_cast<ssize_t>(sizeof value)) {
    throw std::runtime_error("cannot read a table file");
  }
  return value;
}

// The data between the holes, each piece behind its place.
std::string dataOf(const std::string& path) {
  const Glint::UniqueFd file = open(path, O_RDONLY);
  std::string text = std::to_string(fs::file_size(path));
  for (off_t at = ::lseek(file.get(), 0, SEEK_DATA); at >= 0;) {
    const off_t end = ::lseek(file.get(), at, SEEK_HOLE);
    std::string piece(static_cast<std::size_t>(end - at), '\0');
    if (::pread(file.get(), piece.data(), piece.size(), at) != end - at) {
      throw std::runtime_error("cannot read " + path);
    }
    text += "@" + std::to_string(at) + ":" + piece;
    at = ::lseek(file.get(), end, SEEK_DATA);
  }
  return text;
}

}  // namespace

std::map<std::string, std::string> stateContents(const std::string& folder) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : fs::directory_iterator(folder)) {
    contents[entry.path().filename()] =
        entry.is_regular_file() && !entry.is_symlink() ? dataOf(entry.path()) : "no file";
  }
  return contents;
}

void copyState(const std::string& from, const std::string& to) {
  fs::create_directories(to);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(from)) {
    names.push_back(entry.path().filename());
  }
  for (const std::string& name : names) {
    fs::rename(fs::path(from) / Glint::keepCopy(from, name), fs::path(to) / name);
  }
}

void flipBit(const std::string& path, std::uint64_t bit) {
  const std::uint64_t offset = bit / 64 * 8;
  wordIs(path, offset, wordAt(path, offset) ^ std::uint64_t{1} << bit % 64);
}

std::uint64_t wordAt(const std::string& path, std::uint64_t offset) {
  return valueAt<std::uint64_t>(open(path, O_RDONLY).get(), offset);
}

void wordIs(const std::string& path, std::uint64_t offset, std::uint64_t word) {
  const Glint::UniqueFd file = open(path, O_RDWR);
  if (::pwrite(file.get(), &word, sizeof word, static_cast<off_t>(offset)) !=
      static_cast<ssize_t>(sizeof word)) {
    throw std::runtime_error("cannot write " + path);
  }
}

TablePlaces::TablePlaces(const std::string& path) {
  const Glint::UniqueFd file = open(path, O_RDONLY);
  header_ = valueAt<Glint::Header>(file.get(), 0);
  const Glint::FixedHeader& fixed = header_.fixed;
  geometry_ = Glint::Geometry::of(fixed.bucketCount, fixed.slotCount, fixed.slotBytes);
  for (std::uint32_t number = 0; number < Glint::Counter(header_.slotsInUse).value(); ++number) {
    const Glint::Seq seq(valueAt<std::uint64_t>(file.get(), slot(number)));
    if (seq.live()) {
      liveSlots_.push_back(number);
      seqs_[number] = seq;
    }
  }
  for (std::uint32_t bucket = 0; bucket < fixed.bucketCount; ++bucket) {
    if (!Glint::Link(valueAt<std::uint32_t>(file.get(), head(bucket))).atEnd()) {
      usedBuckets_.push_back(bucket);
    }
  }
}

std::uint64_t TablePlaces::liveRow(std::uint32_t number) const {
  const std::size_t words = Glint::rowWords(header_.fixed.rowBytes);
  return slot(number) + 8 * (Glint::copyWord(words, seqs_.at(number).copy()) + 1);
}

}  // namespace testing_support
