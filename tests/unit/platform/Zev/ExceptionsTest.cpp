// SPDX-License-Identifier: Apache-2.0

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Zev/Exceptions.h"

namespace {

TEST(MutatorArgNullPointerException, NamesTheClassAndTheAttribute) {
  try {
    Zev::throwMutatorArgNullPointerException("FecTableSwTable", "transientAddEntry");
    FAIL() << "nothing was thrown";
  } catch (const Zev::MutatorArgNullPointerException& error) {
    EXPECT_EQ(std::string(error.what()),
              "FecTableSwTable::transientAddEntryIs: the argument must not be null");
  }
}

TEST(MutatorArgNullPointerException, IsAnInvalidArgument) {
  EXPECT_THROW(Zev::throwMutatorArgNullPointerException("A", "b"), std::invalid_argument);
}

}  // namespace
