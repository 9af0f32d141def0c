// SPDX-License-Identifier: Apache-2.0

// Readers in other processes against a writer that changes the same rows as fast as it can, is
// killed, and comes back: no torn row, no false miss, no value going back, no row that stayed met
// never or twice by a walk, no version of a log missed, and no reader that waits. Across growth and
// the rebuilding of a damaged index too.

#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "Pell/Exceptions.h"
#include "testing/ChildProcess.h"
#include "testing/LongForm.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::OddRow;
using glint_test::oddRow;
using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::State;
using glint_test::valueOf;

constexpr std::size_t kReaders = 2;

unsigned long long as(std::uint64_t number) { return number; }

// What the processes tell each other.
struct Board {
  std::atomic<std::uint64_t> changes = 0;  // begun by writers, over all their lives
  std::atomic<bool> over = false;
  std::atomic<bool> complained = false;
  std::array<std::atomic<std::uint64_t>, kReaders> passes{};
  std::array<std::array<char, 200>, kReaders> complaints{};
};

// One reader process: makes passes over its table until the test is over, or it has a complaint.
class Reader {
 public:
  Reader(Board& board, std::size_t number) : board_(board), number_(number) {}
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  virtual ~Reader() = default;

  int run() {
    while (!board_.over) {
      try {
        if (!pass()) {
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

 protected:
  // False with a complaint.
  virtual bool pass() = 0;

  std::size_t number() const { return number_; }

  template <typename... Arguments>
  bool complain(const char* format, Arguments... arguments) {
    auto& text = board_.complaints[number_];
    if (text[0] == '\0') {
      std::snprintf(text.data(), text.size(), format, arguments...);
    }
    board_.complained = true;
    return false;
  }

 private:
  Board& board_;
  std::size_t number_;
};

// Writers one after the other, each killed at a random moment, and readers beside them that see
// nothing of it.
class ReadersTest : public ::testing::Test {
 protected:
  using Writer = std::function<int()>;
  using MakeReader = std::function<std::unique_ptr<Reader>(std::size_t number)>;

  // Each life ends after up to `longest` changes and two passes of each reader.
  void liveAndDie(Board& board, const Writer& write, const MakeReader& makeReader, unsigned lives,
                  std::uint64_t longest) {
    std::mt19937 random(kSeed);
    RecordProperty("seed", static_cast<int>(kSeed));
    for (unsigned life = 0; life < lives; ++life) {
      SCOPED_TRACE("life " + std::to_string(life));
      testing_support::ForkedChild writer(write);
      const std::uint64_t goal = board.changes + 1 + random() % longest;
      const auto there = [&] { return board.changes >= goal || board.complained; };
      if (life == 0) {
        ASSERT_TRUE(writer.waitUntil([&] { return board.changes > 0; }));
        for (std::size_t number = 0; number < kReaders; ++number) {
          readers_[number].emplace([&, number] { return makeReader(number)->run(); });
        }
      }
      ASSERT_TRUE(writer.waitUntil(there)) << "the writer ended with " << writer.wait();
      ASSERT_NO_FATAL_FAILURE(expectPasses(board)) << "beside a running writer";
      ASSERT_TRUE(writer.running()) << "the writer ended with " << writer.wait();
      writer.kill();
      ASSERT_NO_FATAL_FAILURE(expectPasses(board)) << "of a dead writer's table";
    }
    board.over = true;
    for (std::size_t number = 0; number < kReaders; ++number) {
      EXPECT_EQ(readers_[number]->wait(), testing_support::Ending::exited(0))
          << board.complaints[number].data();
    }
    std::printf("seed %u: %u lives of the writer, %llu changes, %llu and %llu passes\n", kSeed,
                lives, as(board.changes), as(board.passes[0]), as(board.passes[1]));
  }

 private:
  static constexpr unsigned kSeed = 99;

  void expectPasses(const Board& board) {
    for (std::size_t number = 0; number < kReaders; ++number) {
      const std::uint64_t passes = board.passes[number] + 2;
      ASSERT_TRUE(readers_[number]->waitUntil([&] { return board.passes[number] >= passes; }))
          << board.complaints[number].data();
    }
  }

  std::array<std::optional<testing_support::ForkedChild>, kReaders> readers_;
};

// ---- rows that stay, and rows that come and go

constexpr std::uint32_t kCapacity = 32;
constexpr std::uint32_t kStaying = 24;    // keys below it always have a row
constexpr std::uint32_t kKeys = 60;       // keys from kStaying on come and go
constexpr std::uint32_t kNever = 100000;  // keys from here on never have a row

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

class RowsReader : public Reader {
 public:
  RowsReader(const std::string& root, Board& board, std::size_t number)
      : Reader(board, number), state_(root), entity_(state_.mountReader<OddRow>("t", kCapacity)) {}

 private:
  bool pass() override { return lookUpAll() && walkAll(); }

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

  // Every byte of a row follows from its key and value, and the values of a key rise, also where
  // it had no row for a while.
  bool accept(const OddRow& row, std::uint32_t key) {
    const std::uint64_t value = valueOf(row);
    if (!(row == oddRow(key, value))) {
      return complain("the row of key %u is torn", key);
    }
    if (value < last_[key]) {
      return complain("key %u went back from %llu to %llu", key, as(last_[key]), as(value));
    }
    last_[key] = value;
    return true;
  }

  State state_;
  Pell::Ptr<glint_test::TestEntity<OddRow>> entity_;
  std::array<std::uint64_t, kKeys> last_{};
  std::uint64_t scratchpad_ = 0;
};

TEST_F(ReadersTest, SeeOnlyWholeRowsWhileTheWriterRunsDiesAndComesBack) {
  const testing_support::TemporaryRoot root;
  const testing_support::Shared<Board> board;
  liveAndDie(
      *board, [&] { return write(root.path(), *board); },
      [&](std::size_t number) { return std::make_unique<RowsReader>(root.path(), *board, number); },
      testing_support::times("LOAMFEC_KILLS", 25), 4000);
}

// ---- a log that is followed

constexpr std::uint32_t kLogCapacity = 1024;  // of 2048 slots, in two chunks
constexpr std::uint64_t kLongestLog = 1500;
constexpr std::size_t kHardware = 0;  // the reader up to whose version the log is cleaned up

struct LogBoard : Board {
  std::atomic<std::uint64_t> cleaned = 0;   // the writer removes, or has removed, what is up to it
  std::atomic<std::uint64_t> followed = 0;  // by the hardware
  std::array<std::atomic<std::uint64_t>, kReaders> seen{};  // versions whose row was found
};

using Log = Glint::GlintMap<RisingRow>;

void cleanUp(Log& log, LogBoard& board, std::uint64_t version) {
  for (std::uint64_t next = board.cleaned + 1; next <= version; ++next) {
    board.cleaned = next;
    log.rowDel(next);
  }
}

// Appends versions as an agent does, the row before the scratchpad that announces it, and removes
// the oldest that the hardware has.
int writeLog(const std::string& root, LogBoard& board) {
  State state(root);
  Log& log = state.mount<RisingRow>("log", kLogCapacity)->rows();
  log.rowDel(board.cleaned);
  std::mt19937 random(static_cast<unsigned>(board.changes));
  for (;;) {
    const std::uint64_t version = log.control().scratchpad() + 1;
    log.rowIs(risingRow(version, ++board.changes));
    log.control().scratchpadIs(version);
    while (version - board.cleaned > kLongestLog && board.followed == board.cleaned) {
      ::sched_yield();
    }
    if (random() % 64 == 0) {
      const std::uint64_t kept = random() % kLongestLog;
      cleanUp(log, board,
              std::min<std::uint64_t>(board.followed, version - std::min(kept, version)));
    } else if (version - board.cleaned > kLongestLog) {
      cleanUp(log, board, board.cleaned + 1);
    }
  }
}

// Follows the log version by version, and walks over what is there of it. The row of a version that
// has been handed out never changes, and stays until it is cleaned up; behind that it is gone.
class LogReader : public Reader {
 public:
  LogReader(const std::string& root, LogBoard& board, std::size_t number)
      : Reader(board, number),
        state_(root),
        entity_(state_.mountReader<RisingRow>("log")),
        board_(board) {}

 private:
  bool pass() override { return follow() && walk(); }

  bool follow() {
    const std::uint64_t last = log().control().scratchpad();
    if (last < followed_) {
      return complain("the log went back to version %llu", as(last));
    }
    while (followed_ < last) {
      const std::uint64_t version = ++followed_;
      const auto row = log().row(version);
      if (!row && board_.cleaned < version) {
        return complain("version %llu was missed", as(version));
      }
      if (row && !takes(*row, version)) {
        return false;
      }
    }
    if (number() == kHardware) {
      board_.followed = followed_;
    }
    // The log may have grown that far since: nothing holds the writer back but the hardware.
    const std::uint64_t ahead = last + 3 * kLongestLog;
    return !log().has(ahead) || ahead <= log().control().scratchpad() + 1 ||
           complain("%s", "a version was invented");
  }

  // New versions, in their order.
  bool takes(const RisingRow& row, std::uint64_t version) {
    if (row.key != version || !isWhole(row)) {
      return complain("the row of version %llu is torn", as(version));
    }
    if (row.values.front() <= newest_) {
      return complain("version %llu has an older row than the one before", as(version));
    }
    newest_ = row.values.front();
    held_.emplace(version, newest_);
    ++board_.seen[number()];
    return true;
  }

  bool walk() {
    std::map<std::uint64_t, int> met;
    for (auto at = log().iterator(); at.valid(); at.advance()) {
      const RisingRow& row = at.row();
      if (!isWhole(row)) {
        return complain("a walk met a torn row, version %llu", as(row.key));
      }
      if (row.key > followed_) {
        continue;  // may not have been handed out
      }
      const auto held = held_.find(row.key);
      if (held == held_.end() || held->second != row.values.front()) {
        return complain("a walk met version %llu, which was gone or another", as(row.key));
      }
      if (++met[row.key] != 1) {
        return complain("a walk met version %llu twice", as(row.key));
      }
    }
    const std::uint64_t cleaned = board_.cleaned;
    for (const auto& [version, unused] : held_) {
      if (version > cleaned && !met.contains(version)) {
        return complain("a walk missed version %llu", as(version));
      }
    }
    std::erase_if(held_, [&](const auto& item) { return !met.contains(item.first); });
    return true;
  }

  static bool isWhole(const RisingRow& row) {
    return row == risingRow(row.key, row.values.front());
  }

  Log& log() { return entity_->rows(); }

  State state_;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> entity_;
  LogBoard& board_;
  std::uint64_t followed_ = 0;
  std::uint64_t newest_ = 0;                     // the last row's mark
  std::map<std::uint64_t, std::uint64_t> held_;  // marks of the versions that are still there
};

TEST_F(ReadersTest, FollowALogAndMissNoVersionThatStayed) {
  const testing_support::TemporaryRoot root;
  const testing_support::Shared<LogBoard> board;
  liveAndDie(
      *board, [&] { return writeLog(root.path(), *board); },
      [&](std::size_t number) { return std::make_unique<LogReader>(root.path(), *board, number); },
      testing_support::times("LOAMFEC_KILLS", 15), 8000);
  if (HasFailure()) {
    return;
  }
  std::printf("%llu versions, of which the readers found %llu and %llu\n", as(board->followed),
              as(board->seen[0]), as(board->seen[1]));
  EXPECT_GE(board->seen[kHardware], board->followed) << "what the hardware has not seen stays";
  EXPECT_GT(board->seen[1], 0U);
  EXPECT_GT(board->followed, kLongestLog) << "the log has grown by a chunk";
}

// ---- a table that grows, and whose index is damaged and rebuilt

constexpr std::uint32_t kGrowingCapacity = 2048;
constexpr std::uint32_t kGrown = 3000;  // rows: three chunks of slots
constexpr std::uint32_t kBetweenDamages = 100;

struct GrowthBoard : Board {
  std::atomic<std::uint64_t> place = 0;    // table's number << 32 | rows that it has, keys from 0
  std::atomic<std::uint64_t> damages = 0;  // odd: from before a link is damaged to after the repair
  std::atomic<std::uint64_t> bit = 0;      // that is damaged then
  std::array<std::atomic<std::uint64_t>, kReaders> lookupsBeside{};  // found while damages was odd
};

std::uint64_t placeOf(std::uint64_t table, std::uint64_t rows) { return table << 32U | rows; }
std::string nameOf(std::uint64_t table) { return "t" + std::to_string(table); }

class GrowingWriter {
 public:
  GrowingWriter(const std::string& root, GrowthBoard& board)
      : root_(root), board_(board), random_(static_cast<unsigned>(board.changes)) {}

  // Returns when something is wrong only.
  int run() {
    undoDamage();
    State state(root_);
    for (std::uint64_t table = board_.place >> 32U;; ++table) {
      auto& rows = state.mount<RisingRow>(nameOf(table), kGrowingCapacity)->rows();
      board_.place = std::max<std::uint64_t>(board_.place, placeOf(table, 0));
      for (auto key = static_cast<std::uint32_t>(board_.place); key < kGrown; ++key) {
        rows.rowIs(risingRow(key, ++board_.changes));
        board_.place = placeOf(table, key + 1);
        if ((key + 1) % kBetweenDamages == 0) {
          if (!damageAndMeet(rows, random_() % (key + 1))) {
            return 3;
          }
          waitForReaders();
        }
      }
    }
  }

 private:
  // A mount refuses what no kill of a writer explains.
  void undoDamage() {
    if (board_.damages % 2 == 1) {
      const std::string path = pathOf(board_.place >> 32U);
      const auto word = testing_support::wordAt<std::uint32_t>(path, board_.bit / 32 * 4);
      if (!Glint::Link(word).valid()) {
        testing_support::flipBit(path, board_.bit);
      }
      ++board_.damages;
    }
  }

  bool damageAndMeet(Glint::GlintMap<RisingRow>& rows, std::uint64_t key) {
    const testing_support::Offsets at(kGrowingCapacity, rows.slotCount(), sizeof(RisingRow));
    const std::uint32_t bucket =
        Glint::bucketOf(key, Glint::KeyHash::identity, std::bit_ceil(kGrowingCapacity));
    const std::uint64_t corruptions = rows.corruptionCount();
    board_.bit = 8 * at.head(bucket) + random_() % 32;
    ++board_.damages;
    testing_support::flipBit(pathOf(board_.place >> 32U), board_.bit);
    waitForALookupBeside();
    rows.rowIs(risingRow(key, ++board_.changes));
    ++board_.damages;
    return rows.corruptionCount() == corruptions + 1;
  }

  // The damage stays until a reader has come by it.
  void waitForALookupBeside() const {
    const auto lookups = [this] { return board_.lookupsBeside[0] + board_.lookupsBeside[1]; };
    const std::uint64_t before = lookups();
    while (lookups() == before) {
      ::sched_yield();
    }
  }

  // So that each sees the table at many sizes.
  void waitForReaders() const {
    for (const auto& passes : board_.passes) {
      const std::uint64_t before = passes;
      while (passes == before) {
        ::sched_yield();
      }
    }
  }

  std::string pathOf(std::uint64_t table) const { return root_ + "/" + nameOf(table) + ".table"; }

  std::string root_;
  GrowthBoard& board_;
  std::mt19937 random_;
};

class GrowthReader : public Reader {
 public:
  GrowthReader(const std::string& root, GrowthBoard& board, std::size_t number)
      : Reader(board, number), root_(root), board_(board) {}

 private:
  bool pass() override {
    const std::uint64_t place = board_.place;
    if (!entity_ || place >> 32U != table_) {
      table_ = place >> 32U;
      state_.emplace(root_);
      entity_ = state_->mountReader<RisingRow>(nameOf(table_));
    }
    const auto rows = static_cast<std::uint32_t>(place);
    return lookUpAll(rows) && walk(rows);
  }

  // Other keys in each pass: beside a rebuild each lookup looks at every slot.
  bool lookUpAll(std::uint32_t rows) {
    constexpr std::uint64_t kStride = 16;
    for (std::uint64_t key = passes_++ % kStride; key < rows; key += kStride) {
      if (!lookUp(key, true) || !lookUp(kNever + key, false)) {
        return false;
      }
    }
    return true;
  }

  // Damage may be reported while there is any; a wrong answer never.
  bool lookUp(std::uint64_t key, bool isThere) {
    const std::uint64_t damages = board_.damages;
    try {
      const auto row = entity_->rows().row(key);
      if (row.has_value() != isThere) {
        return complain(isThere ? "key %llu was missed" : "key %llu was invented", as(key));
      }
      board_.lookupsBeside[number()] += damages % 2;
      return !row || accept(*row);
    } catch (const Pell::CorruptionDetectedException& damage) {
      return damages % 2 == 1 || board_.damages != damages ||
             complain("damage where there is none: %s", damage.what());
    }
  }

  // A walk needs no link.
  bool walk(std::uint32_t rows) {
    std::array<int, kGrown> met{};
    for (auto at = entity_->rows().iterator(); at.valid(); at.advance()) {
      const std::uint64_t key = at.row().key;
      if (key >= kGrown || !accept(at.row())) {
        return complain("a walk met a wrong row, key %llu", as(key));
      }
      ++met[key];
    }
    for (std::uint32_t key = 0; key < kGrown; ++key) {
      if (met[key] > 1 || (key < rows && met[key] == 0)) {
        return complain("a walk met key %u, which stayed, not once", key);
      }
    }
    return true;
  }

  bool accept(const RisingRow& row) {
    const std::uint64_t value = row.values.front();
    if (!(row == risingRow(row.key, value))) {
      return complain("the row of key %llu is torn", as(row.key));
    }
    if (value < last_[row.key]) {
      return complain("key %llu went back", as(row.key));
    }
    last_[row.key] = value;
    return true;
  }

  std::string root_;
  GrowthBoard& board_;
  std::uint64_t passes_ = 0;
  std::uint64_t table_ = 0;
  std::optional<State> state_;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> entity_;
  std::array<std::uint64_t, kGrown> last_{};
};

TEST_F(ReadersTest, MissNoRowWhileTheTableGrowsAndItsIndexIsRebuilt) {
  const testing_support::TemporaryRoot root;
  const testing_support::Shared<GrowthBoard> board;
  liveAndDie(
      *board, [&] { return GrowingWriter(root.path(), *board).run(); },
      [&](std::size_t number) {
        return std::make_unique<GrowthReader>(root.path(), *board, number);
      },
      testing_support::times("LOAMFEC_KILLS", 8), 2000);
  if (HasFailure()) {
    return;
  }
  std::printf("%llu tables, %llu damaged links, %llu and %llu lookups beside a repair\n",
              as((board->place >> 32U) + 1), as(board->damages / 2), as(board->lookupsBeside[0]),
              as(board->lookupsBeside[1]));
  EXPECT_GT(board->place, placeOf(0, kGrown - 1)) << "a table has grown to its full size";
  EXPECT_GT(board->lookupsBeside[0] + board->lookupsBeside[1], 0U);
}

}  // namespace
