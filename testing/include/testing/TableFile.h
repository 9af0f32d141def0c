// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "format/Format.h"

// Table files as bytes, for tests that look at them, damage them and compare them.

namespace testing_support {

using Bytes = std::vector<char>;

inline Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// One word of a file, read and changed in place, under the eyes of the processes that have mapped
// it. Throw std::ios_base::failure.
template <typename Word = std::uint64_t>
Word wordAt(const std::string& path, std::uint64_t offset) {
  Word word{};
  std::ifstream in;
  in.exceptions(std::ios::failbit | std::ios::badbit);
  in.open(path, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(offset));
  in.read(static_cast<char*>(static_cast<void*>(&word)), sizeof word);
  return word;
}
template <typename Word>
void wordIs(const std::string& path, std::uint64_t offset, Word word) {
  std::fstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(static_cast<const char*>(static_cast<const void*>(&word)), sizeof word);
  file.flush();
}
inline void flipBit(const std::string& path, std::uint64_t bit) {
  wordIs(path, bit / 8,
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

// Where the parts of a table file are, in bytes from its beginning.
struct Offsets {
  Offsets(std::uint32_t capacity, std::uint32_t slots, std::size_t row)
      : rowBytes(row),
        geometry(Glint::Geometry::of(std::bit_ceil(capacity), slots,
                                     static_cast<std::uint32_t>(Glint::slotBytes(row)))) {}
  explicit Offsets(const Glint::FixedHeader& header)
      : Offsets(header.nominalCapacity, header.slotCount, header.rowBytes) {}
  explicit Offsets(const std::string& path) : Offsets(wordAt<Glint::FixedHeader>(path, 0)) {}

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

// Flips a bit in that byte of the row that is live in the slot; the one that is meant without it is
// behind the key of each kind of row. Throws std::runtime_error when the slot holds no row.
inline void damageRow(const std::string& path, std::uint32_t slot, std::uint64_t byte = 8) {
  const Offsets offsets(path);
  const Glint::Seq seq(wordAt(path, offsets.slot(slot)));
  if (!seq.live()) {
    throw std::runtime_error(path + ": no row is live in slot " + std::to_string(slot));
  }
  flipBit(path, 8 * (offsets.row(slot, seq.copy()) + byte));
}

}  // namespace testing_support
