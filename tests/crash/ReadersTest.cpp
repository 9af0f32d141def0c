// Readers in other processes against a writer that changes the same rows as fast as it can, is
// killed, and comes back: no torn row, no false miss, no value going back, no row that stayed met
// never or twice by a walk, and no reader that waits.

#include <array>
#include <atomic>
#include <cstdio>
#include <optional>
#include <random>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "LongForm.h"
#include "TestTables.h"
#include "testing/TemporaryRoot.h"

namespace {

using glint_test::OddRow;
using glint_test::oddRow;
using glint_test::State;
using glint_test::valueOf;

constexpr std::uint32_t kCapacity = 32;
constexpr std::uint32_t kStaying = 24;    // keys below it always have a row
constexpr std::uint32_t kKeys = 60;       // keys from kStaying on come and go
constexpr std::uint32_t kNever = 100000;  // keys from here on never have a row
constexpr int kReaders = 2;

struct Board {
  std::atomic<std::uint64_t> changes = 0;
  std::atomic<bool> over = false;
  std::array<std::atomic<std::uint64_t>, kReaders> passes{};
  std::array<std::array<char, 200>, kReaders> complaints{};
};

int write(const std::string& root, Board& board) {
  State state(root);
  auto& rows = state.mount<OddRow>("t", kCapacity)->rows();
  for (std::uint32_t key = 0; key < kStaying; ++key) {
    if (!rows.has(key)) {
      rows.rowIs(oddRow(key, 0));
    }
  }
  std::mt19937 random(static_cast<unsigned>(board.changes));
  for (;;) {
    const std::uint64_t change = ++board.changes;
    rows.rowIs(oddRow(static_cast<std::uint32_t>(random() % kStaying), change));
    const auto other = static_cast<std::uint32_t>(kStaying + random() % (kKeys - kStaying));
    if (!rows.rowDel(other)) {
      rows.rowIs(oddRow(other, change));
    }
    rows.control().scratchpadIs(change);
  }
}

// One reader: what it has seen last of each key, and its complaint.
class Reader {
 public:
  Reader(const std::string& root, Board& board, std::size_t number)
      : state_(root),
        entity_(state_.mountReader<OddRow>("t", kCapacity)),
        board_(board),
        number_(number) {}

  int run() {
    while (!board_.over) {
      try {
        if (!lookUpAll() || !walkAll()) {
          return 1;
        }
      } catch (const std::exception& error) {
        complain("exception: %s", error.what());
        return 2;
      }
      ++board_.passes[number_];
    }
    return 0;
  }

 private:
  bool lookUpAll() {
    for (std::uint32_t key = 0; key < kKeys; ++key) {
      const auto row = entity_->rows().row(key);
      if (!row && key < kStaying) {
        return complain("key %u was missed", key);
      }
      if (row && !accept(*row, key)) {
        return false;
      }
    }
    for (std::uint32_t key = kNever; key < kNever + kKeys; ++key) {
      if (entity_->rows().has(key)) {
        return complain("key %u was invented", key);
      }
    }
    const std::uint64_t scratchpad = entity_->rows().control().scratchpad();
    if (scratchpad < scratchpad_) {
      return complain("the scratchpad went back from %llu", as(scratchpad_));
    }
    scratchpad_ = scratchpad;
    return entity_->rows().rowCount() <= kKeys || complain("%s", "too many rows");
  }

  bool walkAll() {
    std::array<int, kKeys> met{};
    for (auto it = entity_->rows().iterator(); it.valid(); it.advance()) {
      const std::uint32_t key = it.row().key;
      if (key >= kKeys || !accept(it.row(), key)) {
        return complain("a walk met a wrong row, key %u", key);
      }
      ++met[key];
    }
    for (std::uint32_t key = 0; key < kStaying; ++key) {
      if (met[key] != 1) {
        return complain("a walk met key %u, which stayed, not once", key);
      }
    }
    return true;
  }

  // Every byte of a row follows from its key and value.
  bool accept(const OddRow& row, std::uint32_t key) {
    const std::uint64_t value = valueOf(row);
    if (!(row == oddRow(key, value))) {
      return complain("the row of key %u is torn", key);
    }
    if (key < kStaying && value < last_[key]) {
      return complain("key %u went back", key);
    }
    last_[key] = value;
    return true;
  }

  static unsigned long long as(std::uint64_t number) { return number; }

  template <typename Argument>
  bool complain(const char* format, Argument argument) {
    auto& text = board_.complaints[number_];
    if (text[0] == '\0') {
      std::snprintf(text.data(), text.size(), format, argument);
    }
    return false;
  }

  State state_;
  Pell::Ptr<glint_test::TestEntity<OddRow>> entity_;
  Board& board_;
  std::size_t number_;
  std::array<std::uint64_t, kKeys> last_{};
  std::uint64_t scratchpad_ = 0;
};

TEST(ReadersTest, SeeOnlyWholeRowsWhileTheWriterRunsDiesAndComesBack) {
  constexpr unsigned kSeed = 99;
  const unsigned lives = crash_test::times("LOAMFEC_KILLS", 25);
  std::mt19937 random(kSeed);
  RecordProperty("seed", static_cast<int>(kSeed));
  const testing_support::TemporaryRoot root;
  const crash_test::Shared<Board> board;
  const auto startWriter = [&] {
    return crash_test::Child([&] { return write(root.path(), *board); });
  };
  std::optional<crash_test::Child> readers[kReaders];
  for (unsigned life = 0; life < lives; ++life) {
    SCOPED_TRACE("life " + std::to_string(life));
    crash_test::Child writer = startWriter();
    const std::uint64_t goal = board->changes + 1 + random() % 4000;
    ASSERT_TRUE(writer.waitUntil([&] { return board->changes >= goal; }));
    for (std::size_t number = 0; life == 0 && number < kReaders; ++number) {
      readers[number].emplace([&, number] { return Reader(root.path(), *board, number).run(); });
    }
    for (std::size_t number = 0; number < kReaders; ++number) {  // beside a running writer
      const std::uint64_t passes = board->passes[number] + 2;
      ASSERT_TRUE(readers[number]->waitUntil([&] { return board->passes[number] >= passes; }))
          << board->complaints[number].data();
    }
    writer.kill();
    for (std::size_t number = 0; number < kReaders; ++number) {  // and of a dead one's table
      const std::uint64_t passes = board->passes[number] + 2;
      ASSERT_TRUE(readers[number]->waitUntil([&] { return board->passes[number] >= passes; }))
          << board->complaints[number].data();
    }
  }
  board->over = true;
  for (std::size_t number = 0; number < kReaders; ++number) {
    EXPECT_EQ(readers[number]->wait(), 0) << board->complaints[number].data();
  }
  std::printf("seed %u: %u lives of the writer, %llu changes, %llu and %llu passes\n", kSeed, lives,
              static_cast<unsigned long long>(board->changes),
              static_cast<unsigned long long>(board->passes[0]),
              static_cast<unsigned long long>(board->passes[1]));
}

}  // namespace
