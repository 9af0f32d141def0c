// SPDX-License-Identifier: Apache-2.0

// Every bit of a small table file, flipped by itself: before a mount, and under the eyes of a
// mounted reader and of a mounted writer. Whatever a bit means, nobody crashes, hangs, invents a
// row or loses one silently: each look at each key is judged by what that very look said.
//
// The daily form flips what the format gives a meaning, all slots included; the long form, with
// LOAMFEC_EVERY_BIT set, flips what lies between the parts as well, which nobody may notice.

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "folder/Mapping.h"
#include "offline/Verify.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::OddRow;
using glint_test::RisingRow;
using glint_test::State;
using ::testing::HasSubstr;

constexpr std::uint32_t kCapacity = 4;  // buckets too
constexpr std::uint32_t kSlots = 8;
constexpr std::uint32_t kRows = 6;  // keys 0 to 5, in the slots of these numbers
constexpr std::uint64_t kScratchpad = 99;

// 64-bit keys that are their own hashes; rows of whole words.
struct RisingTable {
  using Row = RisingRow;
  static constexpr const char* kName = "Rising";
  static Row row(std::uint64_t key, std::uint64_t value) {
    return glint_test::risingRow(key, value);
  }
};

// 32-bit keys that are mixed; rows whose last word has a padded tail.
struct OddTable {
  using Row = OddRow;
  static constexpr const char* kName = "Odd";
  static Row row(std::uint32_t key, std::uint64_t value) { return glint_test::oddRow(key, value); }
};

// The file's bytes, to flip bits in and to put everything back with.
class FileBytes {
 public:
  explicit FileBytes(const std::string& path) : good_(testing_support::readFile(path)) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    bytes_ = Glint::Mapping::ofFile(fd, good_.size(), Glint::Mapping::Access::write);
    ::close(fd);
    if (!bytes_) {
      throw std::runtime_error("cannot map " + path);
    }
  }

  std::uint64_t size() const { return good_.size(); }
  void flip(std::uint64_t bit) const { bytes_.base()[bit / 8] ^= std::byte{1} << bit % 8; }
  void putBack() const { std::memcpy(bytes_.base(), good_.data(), good_.size()); }
  // True if the bit is all that is not as it was.
  bool onlyFlipped(std::uint64_t bit) const {
    flip(bit);
    const bool same = std::memcmp(bytes_.base(), good_.data(), good_.size()) == 0;
    flip(bit);
    return same;
  }

 private:
  testing_support::Bytes good_;
  Glint::Mapping bytes_;
};

// What one look said: the row, if there was one, and the damage, if it was reported.
template <typename Row>
struct Outcome {
  std::optional<Row> row;
  std::string report;
};

// What a look at a whole table says.
template <typename Row>
struct Look {
  std::vector<Outcome<Row>> keys;  // 0 to kRows - 1
  Outcome<bool> absent;            // of a key that has no row
  std::vector<Row> walked;         // as far as the walk came
  std::string walkReport;
  Outcome<std::uint32_t> rowCount;
  Outcome<std::uint64_t> scratchpad;

  std::vector<std::string> reports() const {
    std::vector<std::string> all;
    for (const Outcome<Row>& key : keys) {
      all.push_back(key.report);
    }
    for (const std::string& report :
         {absent.report, walkReport, rowCount.report, scratchpad.report}) {
      all.push_back(report);
    }
    std::erase(all, "");
    return all;
  }
};

template <typename Table>
class EveryBit : public testing_support::LeakCheckedTest {
 protected:
  using Row = typename Table::Row;
  using Rows = Glint::GlintMap<Row>;

  EveryBit() : offsets_(kCapacity, kSlots, sizeof(Row)) {
    mount();
    for (std::uint32_t key = 0; key < kRows; ++key) {
      for (std::uint32_t value = key % 2; value < 2; ++value) {  // either copy is live somewhere
        rows().rowIs(Table::row(key, 100 + value));
      }
      expected_.push_back(Table::row(key, 101));
    }
    rows().control().scratchpadIs(kScratchpad);
    unmount();
    bytes_.emplace(file());
    for (std::uint32_t slot = 0; slot < kRows; ++slot) {
      liveCopy_.push_back(Glint::Seq(testing_support::wordAt(file(), offsets_.slot(slot))).copy());
    }
    absent_ = keyBesides(0);
  }

  void mount() {
    state_.emplace(root_.path());
    entity_ = state_->mount<Row>("t", kCapacity);
  }
  void unmount() {
    entity_ = nullptr;
    state_.reset();
  }
  Rows& rows() { return entity_->rows(); }
  const std::string& root() const { return root_.path(); }
  std::string file() const { return root_.path() + "/t.table"; }
  const FileBytes& bytes() const { return *bytes_; }

  template <typename Visit>
  void forEachBit(Visit visit) const {
    const std::uint64_t end = 8 * bytes_->size();
    const bool whole = std::getenv("LOAMFEC_EVERY_BIT") != nullptr;
    for (std::uint64_t bit = 0; bit < end; ++bit) {
      if (whole || !inGap(bit)) {
        SCOPED_TRACE(bit);
        visit(bit);
        if (this->HasFailure()) {  // one bit is enough to look into
          return;
        }
      }
    }
  }

  static bool inSealedHeader(std::uint64_t bit) { return bit < 8 * sizeof(Glint::FixedHeader); }
  static bool inCorruptionCount(std::uint64_t bit) {
    return bit / 64 == offsetof(Glint::Header, corruptionCount) / 8;
  }
  // Nothing that may be looked at by anybody: between the parts, idle copies, free copies.
  bool meansNothing(std::uint64_t bit) const {
    if (const auto slot = slotOf(bit)) {
      const std::uint64_t seqEnd = 8 * offsets_.slot(*slot) + 64;
      return bit >= seqEnd && (*slot >= kRows || !inLiveCopy(bit, *slot));
    }
    return inGap(bit);
  }
  // The only key whose row the bit can cost: the one in whose slot it lies.
  std::optional<std::uint32_t> keyAt(std::uint64_t bit) const {
    const auto slot = slotOf(bit);
    return slot < kRows && !meansNothing(bit) ? slot : std::nullopt;
  }

  // Damage is told to the map, as a user does; a writer has mended it then, so that `again` (which
  // is for writers) says what is left.
  static Look<Row> lookAt(Rows& rows, std::uint32_t absent, bool again = false) {
    using Key = typename Rows::Key;
    Look<Row> look;
    for (std::uint32_t key = 0; key < kRows; ++key) {
      look.keys.push_back({});
      Outcome<Row>& outcome = look.keys.back();
      outcome.report = reportOf(rows, again, [&] { outcome.row = rows.row(Key(key)); });
    }
    look.absent.report = reportOf(rows, again, [&] { look.absent.row = rows.has(Key(absent)); });
    look.walkReport = reportOf(rows, again, [&] {
      look.walked.clear();
      for (auto it = rows.iterator(); it.valid(); it.advance()) {
        look.walked.push_back(it.row());
      }
    });
    look.rowCount.report = reportOf(rows, again, [&] { look.rowCount.row = rows.rowCount(); });
    look.scratchpad.report =
        reportOf(rows, again, [&] { look.scratchpad.row = rows.control().scratchpad(); });
    return look;
  }
  Look<Row> lookAt(Rows& rows, bool again = false) const { return lookAt(rows, absent_, again); }

  // Of somebody who cannot mend anything: each look has said all, or has said why not.
  void expectHonest(const Look<Row>& look, std::uint64_t bit) const {
    for (std::uint32_t key = 0; key < kRows; ++key) {
      expectRow(look.keys[key], key);
      if (!look.keys[key].row) {
        EXPECT_NE(look.keys[key].report, "") << "silently lost: " << key;
      }
    }
    if (look.absent.row) {
      EXPECT_EQ(look.absent.row, false) << "invented";
    } else {
      EXPECT_NE(look.absent.report, "");
    }
    ASSERT_LE(look.walked.size(), expected_.size());
    for (std::size_t i = 0; i < look.walked.size(); ++i) {  // keys are in the order of slots
      EXPECT_EQ(look.walked[i], expected_[i]) << i;
    }
    if (look.walkReport == "") {
      EXPECT_EQ(look.walked.size(), expected_.size()) << "silently lost";
    }
    EXPECT_EQ(look.rowCount.row.value_or(kRows), kRows);
    EXPECT_EQ(look.scratchpad.row.value_or(kScratchpad), kScratchpad);
    expectReportsFit(look.reports(), bit);
  }

  // Of a writer: one row may be gone, the one in whose slot the bit lies, and `reports` named that
  // slot before its absence was told; all looks agree.
  void expectHonest(const Look<Row>& look, std::uint64_t bit, std::vector<std::string> reports) {
    std::vector<Row> left;
    for (std::uint32_t key = 0; key < kRows; ++key) {
      reports.push_back(look.keys[key].report);
      expectRow(look.keys[key], key);
      if (look.keys[key].row) {
        left.push_back(*look.keys[key].row);
        continue;
      }
      EXPECT_EQ(keyAt(bit), key) << "lost by damage elsewhere";
      EXPECT_THAT(reports, ::testing::Contains(HasSubstr(fmt::format("slot {}:", key))))
          << "silently lost: " << key;
    }
    EXPECT_EQ(look.absent.row, false);
    EXPECT_EQ(look.walked, left);
    EXPECT_EQ(look.rowCount.row, left.size());
    EXPECT_EQ(look.scratchpad.row, kScratchpad);
    expectReportsFit(look.reports(), bit);
  }

  std::uint32_t absent() const { return absent_; }

 private:
  bool inGap(std::uint64_t bit) const {
    const std::uint64_t at = bit / 8;
    const Glint::Geometry& parts = offsets_.geometry;
    if (at < parts.headsAt) {
      return at >= sizeof(Glint::Header);
    }
    if (at < parts.linksAt) {
      return at >= offsets_.head(kCapacity);
    }
    return at < parts.slotsAt ? at >= offsets_.link(kSlots) : at >= offsets_.slot(kSlots);
  }
  std::optional<std::uint32_t> slotOf(std::uint64_t bit) const {
    if (bit / 8 < offsets_.slot(0) || bit / 8 >= offsets_.slot(kSlots)) {
      return std::nullopt;
    }
    return static_cast<std::uint32_t>((bit / 8 - offsets_.slot(0)) / Glint::slotBytes(sizeof(Row)));
  }
  bool inLiveCopy(std::uint64_t bit, std::uint32_t slot) const {
    const std::uint64_t begin = offsets_.checksum(slot, liveCopy_[slot]);
    return bit / 8 >= begin && bit / 8 < begin + 8 + 8 * Glint::rowWords(sizeof(Row));
  }
  // A key without a row, of the bucket of `key`.
  static std::uint32_t keyBesides(std::uint32_t key) {
    const auto layout = Glint::tableLayout<Row>("rows", kCapacity);
    const auto bucket = [&](std::uint32_t of) {
      return Glint::bucketOf(of, layout.keyHash, layout.bucketCount());
    };
    std::uint32_t other = kRows;
    while (bucket(other) != bucket(key)) {
      ++other;
    }
    return other;
  }

  // What `look` reports; the map is told, and the look taken once more if it is to be.
  static std::string reportOf(Rows& rows, bool again, const std::function<void()>& look) {
    try {
      look();
      return {};
    } catch (const Pell::CorruptionDetectedException& damage) {
      std::string report = damage.what();
      rows.doCorruptionDetected(report);
      if (again) {
        EXPECT_NO_THROW(look()) << "after " << report;
      }
      return report;
    }
  }

  void expectRow(const Outcome<Row>& outcome, std::uint32_t key) const {
    if (outcome.row) {
      EXPECT_EQ(*outcome.row, expected_[key]) << key;
    }
  }
  void expectReportsFit(const std::vector<std::string>& reports, std::uint64_t bit) const {
    EXPECT_THAT(reports, ::testing::Each(HasSubstr("t.table: ")));
    if (meansNothing(bit) || inSealedHeader(bit)) {
      EXPECT_THAT(reports, ::testing::IsEmpty());
    }
  }

  testing_support::TemporaryRoot root_;
  std::optional<State> state_;
  Pell::Ptr<glint_test::TestEntity<Row>> entity_;
  testing_support::Offsets offsets_;
  std::vector<Row> expected_;
  std::vector<unsigned> liveCopy_;  // of each row's slot
  std::uint32_t absent_ = 0;
  std::optional<FileBytes> bytes_;
};

struct TableNames {
  template <typename Table>
  static std::string GetName(int) {
    return Table::kName;
  }
};
using Tables = ::testing::Types<RisingTable, OddTable>;
TYPED_TEST_SUITE(EveryBit, Tables, TableNames);

TYPED_TEST(EveryBit, FlippedUnderAMountedReaderIsHarmlessOrReported) {
  State state(this->root());
  auto entity = state.template mountReader<typename TypeParam::Row>("t");
  std::uint64_t reports = 0;
  this->forEachBit([&](std::uint64_t bit) {
    this->bytes().flip(bit);
    const auto look = this->lookAt(entity->rows());
    this->expectHonest(look, bit);
    EXPECT_TRUE(this->bytes().onlyFlipped(bit));
    this->bytes().flip(bit);
    reports += look.reports().size();
  });
  EXPECT_EQ(entity->rows().corruptionCount(), reports);
  EXPECT_THAT(this->lookAt(entity->rows()).reports(), ::testing::IsEmpty());
}

TYPED_TEST(EveryBit, FlippedBeforeAReaderMountsIsHarmlessOrReported) {
  this->forEachBit([&](std::uint64_t bit) {
    this->bytes().flip(bit);
    try {
      State state(this->root());
      auto entity = state.template mountReader<typename TypeParam::Row>("t");
      EXPECT_FALSE(this->inSealedHeader(bit));  // damage there keeps everybody out
      const auto look = this->lookAt(entity->rows());
      this->expectHonest(look, bit);
      EXPECT_EQ(entity->rows().corruptionCount(), look.reports().size());
    } catch (const ZevGlint::MountException& refusal) {
      EXPECT_TRUE(this->inSealedHeader(bit)) << refusal.what();
      EXPECT_THAT(refusal.what(), HasSubstr("t.table: "));
    }
    EXPECT_TRUE(this->bytes().onlyFlipped(bit));
    this->bytes().flip(bit);
  });
}

TYPED_TEST(EveryBit, FlippedBeforeAWriterMountsIsHarmlessOrReported) {
  this->forEachBit([&](std::uint64_t bit) {
    this->bytes().flip(bit);
    const Glint::Verification verified = Glint::verifyTable(this->file());
    if (this->meansNothing(bit)) {
      EXPECT_THAT(verified.findings, ::testing::IsEmpty());
    }
    try {
      this->mount();
      const std::uint64_t reportedByMount = this->rows().corruptionCount();
      EXPECT_EQ(reportedByMount, verified.findings.size());  // both are of one mind
      const auto look = this->lookAt(this->rows());
      EXPECT_THAT(look.reports(), ::testing::IsEmpty());  // what a mount lets pass is whole
      this->expectHonest(look, bit, verified.findings);
      this->rows().rowIs(TypeParam::row(this->absent(), 1));
      EXPECT_TRUE(this->rows().rowDel(this->absent()));
      EXPECT_EQ(this->rows().corruptionCount(), reportedByMount);
    } catch (const ZevGlint::MountException& refusal) {
      EXPECT_THAT(refusal.what(), HasSubstr("t.table: "));
      EXPECT_THAT(verified.findings, ::testing::Not(::testing::IsEmpty()));
      EXPECT_TRUE(this->bytes().onlyFlipped(bit));  // a refusal changes nothing
    }
    this->unmount();
    this->bytes().putBack();
  });
}

TYPED_TEST(EveryBit, FlippedUnderAWriterIsHarmlessOrReportedAndItGoesOn) {
  this->forEachBit([&](std::uint64_t bit) {
    this->mount();
    this->bytes().flip(bit);
    const auto look = this->lookAt(this->rows(), true);
    this->expectHonest(look, bit, {});
    if (!this->inCorruptionCount(bit)) {
      EXPECT_EQ(this->rows().corruptionCount(), look.reports().size());
    }
    for (std::uint32_t key = 0; key < kRows; ++key) {  // also what was lost is put right
      this->rows().rowIs(TypeParam::row(key, key + 1));
    }
    this->rows().rowIs(TypeParam::row(this->absent(), 1));
    const auto after = glint_test::walk(this->rows());
    EXPECT_EQ(after.steps, kRows + 1);
    EXPECT_EQ(after.rows.size(), kRows + 1);
    EXPECT_EQ(after.rows.at(5), TypeParam::row(5, 6));
    EXPECT_EQ(this->rows().rowCount(), kRows + 1);
    this->unmount();
    this->bytes().putBack();
  });
}

}  // namespace
