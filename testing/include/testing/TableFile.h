// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "format/Format.h"

// Table files as bytes, for tests that look at them, damage them and compare them.

namespace glint_test {

using Bytes = std::vector<char>;

inline Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Changes bytes of a file in place, under the eyes of the processes that have mapped it.
template <typename Word>
Word wordAt(const std::string& path, std::uint64_t offset) {
  Word word{};
  std::ifstream in(path, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(offset));
  in.read(static_cast<char*>(static_cast<void*>(&word)), sizeof word);
  return word;
}
template <typename Word>
void wordAtIs(const std::string& path, std::uint64_t offset, Word word) {
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(static_cast<const char*>(static_cast<const void*>(&word)), sizeof word);
}
inline void flipBit(const std::string& path, std::uint64_t bit) {
  wordAtIs(path, bit / 8,
           static_cast<std::uint8_t>(wordAt<std::uint8_t>(path, bit / 8) ^ 1U << bit % 8));
}

// Everything below a folder save the lock file: what a refused mount leaves as it was.
inline std::map<std::string, Bytes> filesOf(const std::string& folder) {
  std::map<std::string, Bytes> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename() != ".writer") {
      files[entry.path().filename()] = entry.is_regular_file() ? readFile(entry.path()) : Bytes();
    }
  }
  return files;
}

// Offsets within a table's file.
struct Offsets {
  Offsets(std::uint32_t capacity, std::uint32_t slots, std::size_t row)
      : rowBytes(row),
        geometry(Glint::Geometry::of(std::bit_ceil(capacity), slots,
                                     static_cast<std::uint32_t>(Glint::slotBytes(row)))) {}

  std::uint64_t head(std::uint32_t bucket) const { return geometry.headsAt + 4 * bucket; }
  std::uint64_t link(std::uint32_t slot) const { return geometry.linksAt + 4 * slot; }
  std::uint64_t slot(std::uint32_t number) const {
    return geometry.slotsAt + Glint::slotBytes(rowBytes) * number;
  }
  std::uint64_t checksum(std::uint32_t number, unsigned copy) const {
    return slot(number) + 8 * Glint::copyWord(Glint::rowWords(rowBytes), copy);
  }
  std::uint64_t row(std::uint32_t number, unsigned copy) const {
    return checksum(number, copy) + 8;
  }

  std::size_t rowBytes;
  Glint::Geometry geometry;
};

}  // namespace glint_test
