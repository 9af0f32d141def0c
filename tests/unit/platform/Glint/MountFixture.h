// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

// A state folder with one table, t, and what mounts of it say.

namespace glint_test {

inline constexpr std::uint32_t kCapacity = 8;

inline ZevGlint::MountInfo mountInfo(ZevGlint::ZevGlintType type, std::uint32_t capacity,
                                     const Pell::String& collection = "rows") {
  ZevGlint::MountInfo info(type);
  info.collectionInfoIs({collection, capacity});
  return info;
}

// The text of the exception that `mount` ends with; empty if it does not.
inline std::string refusal(const std::function<void()>& mount) {
  try {
    mount();
  } catch (const ZevGlint::MountException& error) {
    return error.what();
  }
  return {};
}

class MountTest : public testing_support::LeakCheckedTest {
 protected:
  const std::string& root() const { return root_.path(); }
  std::string file() const { return root() + "/t.table"; }

  void makeTable() {
    State state(root());
    state.mount<SmallRow>("t", kCapacity)->rows().rowIs(smallRow(1, 2));
  }

  template <typename Row = SmallRow>
  std::string refusalOf(ZevGlint::ZevGlintType type, std::uint32_t capacity = kCapacity) const {
    return refusal([&] { State(root()).mount<Row>("t", capacity, type); });
  }

  // Both kinds of mount refuse the file with a text that has its path and `why` in it, and leave
  // everything as it was.
  void expectRefused(const std::string& why) {
    const auto before = testing_support::filesOf(root());
    for (const ZevGlint::ZevGlintType type :
         {ZevGlint::ZevGlintType::writer, ZevGlint::ZevGlintType::reader}) {
      EXPECT_THAT(refusalOf(type),
                  ::testing::AllOf(::testing::HasSubstr("t.table"), ::testing::HasSubstr(why)));
    }
    EXPECT_EQ(testing_support::filesOf(root()), before);
  }

 private:
  testing_support::TemporaryRoot root_;
};

}  // namespace glint_test
