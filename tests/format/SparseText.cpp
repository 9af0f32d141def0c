// SPDX-License-Identifier: Apache-2.0

#include "SparseText.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "folder/RootFolder.h"
#include "format/Format.h"

namespace format_test {

namespace {

using Bytes = std::vector<unsigned char>;

void require(bool holds, const char* what) {
  if (!holds) {
    throw std::runtime_error(what);
  }
}

Bytes bytesAt(const Glint::UniqueFd& file, std::uint64_t offset, std::size_t count) {
  Bytes bytes(count);
  require(::pread(file.get(), bytes.data(), count, static_cast<off_t>(offset)) ==
              static_cast<ssize_t>(count),
          "the file is too short");
  return bytes;
}

// Writes pieces, equal neighbours as one line.
class TextWriter {
 public:
  explicit TextWriter(std::string& text) : text_(text) {}

  void add(std::uint64_t offset, const Bytes& piece) {
    if (piece == piece_ && offset == offset_ + piece_.size() * count_) {
      ++count_;
      return;
    }
    flush();
    offset_ = offset;
    piece_ = piece;
    count_ = 1;
  }

  // To be called at the end.
  void flush() {
    if (std::ranges::all_of(piece_, [](unsigned char byte) { return byte == 0; })) {
      return;
    }
    text_ += fmt::format("{:08x} x{}", offset_, count_);
    for (std::size_t at = 0; at < piece_.size(); ++at) {
      text_ += fmt::format("{}{:02x}", at % 8 == 0 ? " " : "", piece_[at]);
    }
    text_ += '\n';
  }

 private:
  std::string& text_;
  std::uint64_t offset_ = 0;
  Bytes piece_;
  std::uint64_t count_ = 0;
};

struct Part {
  std::uint64_t begin;
  std::uint64_t end;
  std::size_t pieceBytes;
};

// The pieces of the part that lie in memory at all.
void addPart(const Glint::UniqueFd& file, const Part& part, TextWriter& writer) {
  std::uint64_t at = part.begin;
  while (at < part.end) {
    const off_t data = ::lseek(file.get(), static_cast<off_t>(at), SEEK_DATA);
    if (data < 0 || static_cast<std::uint64_t>(data) >= part.end) {
      return;
    }
    const auto ahead = static_cast<std::uint64_t>(data) - at;
    at += ahead / part.pieceBytes * part.pieceBytes;
    const auto hole = static_cast<std::uint64_t>(::lseek(file.get(), data, SEEK_HOLE));
    for (; at < std::min(hole, part.end); at += part.pieceBytes) {
      const std::uint64_t left = part.end - at;
      writer.add(at, bytesAt(file, at, std::min<std::uint64_t>(part.pieceBytes, left)));
    }
  }
}

unsigned char hexDigit(char c) {
  const std::string_view digits = "0123456789abcdef";
  const std::size_t at = digits.find(c);
  require(at != std::string_view::npos, "not a hexadecimal digit");
  return static_cast<unsigned char>(at);
}

}  // namespace

std::string toText(const std::string& tableFile) {
  const Glint::UniqueFd file(::open(tableFile.c_str(), O_RDONLY | O_CLOEXEC));
  require(static_cast<bool>(file), "there is no such file");
  const Bytes head = bytesAt(file, 0, sizeof(Glint::FixedHeader));
  Glint::FixedHeader header{};
  std::memcpy(&header, head.data(), sizeof header);
  require(header.magic == Glint::kMagic, "it is not a shared table");
  const auto geometry = Glint::Geometry::of(header.bucketCount, header.slotCount, header.slotBytes);
  const auto length = static_cast<std::uint64_t>(::lseek(file.get(), 0, SEEK_END));
  std::string text = fmt::format("bytes {}\n", length);
  TextWriter writer(text);
  addPart(file, {0, geometry.slotsAt, 16}, writer);
  addPart(file, {geometry.slotsAt, length, header.slotBytes}, writer);
  writer.flush();
  return text;
}

void fromText(const std::string& text, const std::string& tableFile) {
  const Glint::UniqueFd file(
      ::open(tableFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
  require(static_cast<bool>(file), "cannot make the file");
  std::istringstream lines(text);
  std::string word;
  std::uint64_t length = 0;
  require(lines >> word >> length && word == "bytes", "it does not begin with the length");
  require(::ftruncate(file.get(), static_cast<off_t>(length)) == 0, "cannot make room");
  lines.ignore(1);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::uint64_t offset = 0;
    std::size_t count = 0;
    char x = ' ';
    require(words >> std::hex >> offset >> x >> std::dec >> count && x == 'x', "a bad line");
    Bytes piece;
    while (words >> word) {
      for (std::size_t at = 0; at + 1 < word.size(); at += 2) {
        piece.push_back(
            static_cast<unsigned char>(hexDigit(word[at]) << 4U | hexDigit(word[at + 1])));
      }
    }
    Bytes all;
    for (std::size_t i = 0; i < count; ++i) {
      all.insert(all.end(), piece.begin(), piece.end());
    }
    require(::pwrite(file.get(), all.data(), all.size(), static_cast<off_t>(offset)) ==
                static_cast<ssize_t>(all.size()),
            "cannot write the file");
  }
}

}  // namespace format_test
