// SPDX-License-Identifier: Apache-2.0

#include "testing/StateFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "folder/FolderUpkeep.h"
#include "folder/RootFolder.h"

namespace testing_support {

namespace fs = std::filesystem;

namespace {

Glint::UniqueFd open(const std::string& path) {
  Glint::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
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
  const Glint::UniqueFd file = open(path);
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

TablePlaces::TablePlaces(const std::string& path) : Offsets(path) {
  const Glint::UniqueFd file = open(path);
  const auto header = valueAt<Glint::Header>(file.get(), 0);
  for (std::uint32_t number = 0; number < Glint::Counter(header.slotsInUse).value(); ++number) {
    const Glint::Seq seq(valueAt<std::uint64_t>(file.get(), slot(number)));
    if (seq.live()) {
      liveSlots_.push_back(number);
      seqs_[number] = seq;
    }
  }
  for (std::uint32_t bucket = 0; bucket < header.fixed.bucketCount; ++bucket) {
    if (!Glint::Link(valueAt<std::uint32_t>(file.get(), head(bucket))).atEnd()) {
      usedBuckets_.push_back(bucket);
    }
  }
}

void damageRowOf(const std::string& path, std::uint32_t fecId) {
  const TablePlaces places(path);
  for (const std::uint32_t slot : places.liveSlots()) {
    if (wordAt<std::uint32_t>(path, places.liveRow(slot)) == fecId) {
      damageRow(path, slot);
      return;
    }
  }
  throw std::runtime_error(path + ": no row of key " + std::to_string(fecId));
}

}  // namespace testing_support
