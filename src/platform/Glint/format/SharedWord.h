// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#ifndef XXH_INLINE_ALL
#define XXH_INLINE_ALL
#endif
#include <xxhash.h>

// How the words of a mapped table are read and written. Every access to bytes that a writer and a
// reader may touch at the same time is an atomic one: relaxed for rows, release where a store
// takes effect, acquire where a reader relies on it.

namespace Glint {

template <typename Word>
Word loadRelaxed(const Word& word) {
  return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_relaxed);
}
template <typename Word>
Word loadAcquire(const Word& word) {
  return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_acquire);
}
template <typename Word>
void storeRelaxed(Word& word, Word value) {
  std::atomic_ref<Word>(word).store(value, std::memory_order_relaxed);
}
// No earlier store may be moved behind it, neither by the compiler (a kill leaves a prefix of the
// stores) nor by the processor (a reader sees them in order).
template <typename Word>
void storeRelease(Word& word, Word value) {
  std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
// Called before a writer fills bytes that a reader may still be copying: everything published
// before is seen no later than the first byte of the filling.
inline void fenceBeforeFill() { std::atomic_thread_fence(std::memory_order_release); }
// Called between a reader's copying and its second look at the word that confirms the copy.
inline void fenceBeforeSecondLook() { std::atomic_thread_fence(std::memory_order_acquire); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// The checksum of a row, given as its words with, last, the seq that publishes it. Flattened, so
// that the library's code for other lengths is dropped.
template <typename Word, std::size_t kExtent>
[[gnu::flatten]] inline std::uint64_t checksumOf(std::span<Word, kExtent> sealed) {
  return XXH3_64bits(sealed.data(), sealed.size_bytes());
}

// A row as the table stores it, in words with a zero tail, followed by the seq that publishes it:
// the bytes that the row's checksum covers.
template <std::size_t kWords>
struct SealedRow {
  std::array<std::uint64_t, kWords + 1> words;

  std::uint64_t checksum() const { return checksumOf(std::span(words)); }
};

// The row whose bytes begin at `words`.
template <typename Row>
inline Row rowOfWords(const std::uint64_t* words) {
  std::array<std::byte, sizeof(Row)> bytes{};
  std::memcpy(bytes.data(), words, bytes.size());
  return std::bit_cast<Row>(bytes);
}

// Fills a copy (its checksum word, then the row) for publication under `publishing`.
template <std::size_t kWords>
inline void fillCopy(std::uint64_t* copy, SealedRow<kWords>& row, std::uint64_t publishing) {
  row.words[kWords] = publishing;
  const std::uint64_t checksum = row.checksum();
  fenceBeforeFill();
  storeRelaxed(copy[0], checksum);
  for (std::size_t word = 0; word < kWords; ++word) {
    storeRelaxed(copy[1 + word], row.words[word]);
  }
}

enum class CopyState { good, changed, damaged };

// Copies a row out, word by word, and says whether it is the one that was published under `seq`.
// Nothing else decides whether bytes in a table are a row. `sealed` has room for the row and one
// word more. After the copying, `isUnchanged` says whether the words that led to the copy have
// stayed as they were.
template <std::size_t kExtent, typename IsUnchanged>
inline CopyState judgeCopy(const std::uint64_t* copy, std::uint64_t seq,
                           std::span<std::uint64_t, kExtent> sealed, IsUnchanged&& isUnchanged) {
  const std::uint64_t checksum = loadRelaxed(copy[0]);
  const std::size_t words = sealed.size() - 1;
  for (std::size_t word = 0; word < words; ++word) {
    sealed[word] = loadRelaxed(copy[1 + word]);
  }
  sealed[words] = seq;
  if (!isUnchanged()) {
    return CopyState::changed;
  }
  return checksumOf(sealed) == checksum ? CopyState::good : CopyState::damaged;
}

// judgeCopy() for a copy that no writer changes, or whose change does not matter.
template <std::size_t kExtent>
inline bool checksOut(const std::uint64_t* copy, std::uint64_t seq,
                      std::span<std::uint64_t, kExtent> sealed) {
  return judgeCopy(copy, seq, sealed, [] { return true; }) == CopyState::good;
}

// Copies a row out and says whether it is the one that `seq`, as read from `seqWord`, publishes.
// `damaged` is certain: the slot did not change meanwhile.
template <std::size_t kWords>
inline CopyState readCopy(const std::uint64_t* copy, const std::uint64_t& seqWord,
                          std::uint64_t seq, SealedRow<kWords>& out) {
  return judgeCopy(copy, seq, std::span(out.words), [&] {
    fenceBeforeSecondLook();
    return loadRelaxed(seqWord) == seq;
  });
}

}  // namespace Glint
