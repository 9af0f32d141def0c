// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/TypeRecord.h"

namespace {

const Zev::TypeRecord& record() {
  static const Zev::TypeRecord instance{
      "FecTableSwTable",
      {{"unitId", 1}, {"entryUsage", 139}},
      {{"tableDelete", {"isDelete", "errorCode"}}, {"clear", {}}},
  };
  return instance;
}

TEST(TypeRecord, FindsAttributesByName) {
  ASSERT_NE(record().attribute("entryUsage"), nullptr);
  EXPECT_EQ(record().attribute("entryUsage")->id, 139);
  EXPECT_EQ(record().attribute("entryusage"), nullptr);
  EXPECT_EQ(record().attribute(""), nullptr);
}

TEST(TypeRecord, FindsOperationsAndTheirParameterNames) {
  ASSERT_NE(record().operation("tableDelete"), nullptr);
  EXPECT_THAT(record().operation("tableDelete")->parameters,
              ::testing::ElementsAre("isDelete", "errorCode"));
  EXPECT_THAT(record().operation("clear")->parameters, ::testing::IsEmpty());
  EXPECT_EQ(record().operation("unitId"), nullptr) << "an attribute is no operation";
}

TEST(TypeRecord, AClassWithoutMembersHasAName) {
  const Zev::TypeRecord bare{"Bare"};
  EXPECT_EQ(bare.name, "Bare");
  EXPECT_EQ(bare.attribute("any"), nullptr);
  EXPECT_EQ(bare.operation("any"), nullptr);
}

}  // namespace
