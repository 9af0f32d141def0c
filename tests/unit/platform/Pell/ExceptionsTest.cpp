// SPDX-License-Identifier: Apache-2.0

#include <stdexcept>

#include <gtest/gtest.h>

#include "Pell/Exceptions.h"

namespace {

TEST(CorruptionDetectedException, CarriesItsMessageWhole) {
  const Pell::CorruptionDetectedException corruption("slot 7 links to slot 9000 of 8000");
  EXPECT_EQ(corruption.message(), "slot 7 links to slot 9000 of 8000");
  EXPECT_STREQ(corruption.what(), "slot 7 links to slot 9000 of 8000");
}

TEST(CorruptionDetectedException, IsCaughtAsARuntimeError) {
  EXPECT_THROW(throw Pell::CorruptionDetectedException("bad"), std::runtime_error);
}

}  // namespace
