// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

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

// A row as the table stores it, in words with a zero tail, followed by the seq that publishes it:
// the bytes that the row's checksum covers.
template <std::size_t kWords>
struct SealedRow {
  std::array<std::uint64_t, kWords + 1> words;

  // Flattened: the length is known, so the compiler can leave out the general cases.
  [[gnu::flatten]] std::uint64_t checksum() const {
    return XXH3_64bits(words.data(), sizeof words);
  }
};

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

// Copies a row out and says whether it is the one that `seq`, as read from `seqWord`, publishes.
// `damaged` is certain: the slot did not change meanwhile.
template <std::size_t kWords>
inline CopyState readCopy(const std::uint64_t* copy, const std::uint64_t& seqWord,
                          std::uint64_t seq, SealedRow<kWords>& out) {
  const std::uint64_t checksum = loadRelaxed(copy[0]);
  for (std::size_t word = 0; word < kWords; ++word) {
    out.words[word] = loadRelaxed(copy[1 + word]);
  }
  out.words[kWords] = seq;
  fenceBeforeSecondLook();
  if (loadRelaxed(seqWord) != seq) {
    return CopyState::changed;
  }
  return out.checksum() == checksum ? CopyState::good : CopyState::damaged;
}

}  // namespace Glint
